// An item provider: one shared thing (a link, a file, a picture) offered
// under one or more type identifiers, in the order of preference of the
// application that shared it. Loading is asynchronous, as on a host where
// the sending application may still be producing the data: the completion
// runs once, on the process's item-loading thread, never inside loadItem().
// A caller that waits for the item loads it on its own thread instead.
#pragma once

#include "platform/error.h"
#include "platform/extension/url.h"

#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tasket::platform {

using Bytes = std::vector<std::uint8_t>;

/// A picture held in memory, as the sending application encoded it (PNG,
/// JPEG, …); `typeIdentifier` is what its signature says it is, or
/// public.image when nothing recognised it.
struct InMemoryImage {
    Bytes encoded;
    std::string typeIdentifier;

    friend bool operator==(const InMemoryImage&, const InMemoryImage&) = default;
};

/// What a load yields: a URL, raw data, or an in-memory picture.
using LoadedItem = std::variant<Url, Bytes, InMemoryImage>;

/// Providers live in std::shared_ptr (a pending load keeps its provider
/// alive); implementations supply the types and the representations.
class ItemProvider : public std::enable_shared_from_this<ItemProvider> {
  public:
    using Completion = std::function<void(Result<LoadedItem>)>;

    ItemProvider() = default;
    ItemProvider(const ItemProvider&) = delete;
    ItemProvider& operator=(const ItemProvider&) = delete;
    virtual ~ItemProvider();

    /// The types this provider offers, most preferred first.
    [[nodiscard]] virtual std::vector<std::string> registeredTypeIdentifiers() const = 0;

    /// True when one of the registered types conforms to `type` (a provider
    /// of public.file-url has an item conforming to public.url).
    [[nodiscard]] bool hasItemConformingTo(std::string_view type) const;

    /// Loads the representation of the first registered type that conforms
    /// to `type` and hands it to `completion` on the item-loading thread.
    /// Fails with notFound when no registered type conforms.
    void loadItem(std::string_view type, Completion completion) const;

    /// The same load for a caller that waits, made on the calling thread
    /// (handing it to another thread to wait for would only cost a thread):
    /// the future is ready when it returns.
    [[nodiscard]] std::future<Result<LoadedItem>> loadItem(std::string_view type) const;

  protected:
    /// The representation offered as `registeredType`, one of
    /// registeredTypeIdentifiers(). Runs on the item-loading thread, or
    /// on a waiting caller's.
    [[nodiscard]] virtual Result<LoadedItem>
    loadRepresentation(std::string_view registeredType) const = 0;

  private:
    /// The first registered type conforming to `type`.
    [[nodiscard]] std::optional<std::string> conformingType(std::string_view type) const;
};

} // namespace tasket::platform
