// An item provider built from values: each registered type hands out the
// value (or the error) it was registered with. Tests build shared input
// with it, and the command-line adapter uses it for what it has already
// checked and read.
#pragma once

#include "platform/extension/item_provider.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tasket::platform {

class InMemoryItemProvider final : public ItemProvider {
  public:
    /// Construct through make(): loads need the provider in a shared_ptr.
    InMemoryItemProvider() = default;

    /// A provider with nothing registered yet.
    [[nodiscard]] static std::shared_ptr<InMemoryItemProvider> make();
    /// A provider offering `value` (or failing with its error) as `type`.
    [[nodiscard]] static std::shared_ptr<InMemoryItemProvider> make(std::string type,
                                                                    Result<LoadedItem> value);

    /// Offers `value` as `type`, after the types registered so far; a type
    /// registered again keeps its place and takes the new value. Register
    /// before the provider is shared: registration is not synchronised
    /// with loads.
    void registerItem(std::string type, Result<LoadedItem> value);

    [[nodiscard]] std::vector<std::string> registeredTypeIdentifiers() const override;

  protected:
    [[nodiscard]] Result<LoadedItem>
    loadRepresentation(std::string_view registeredType) const override;

  private:
    std::vector<std::pair<std::string, Result<LoadedItem>>> m_representations;
};

} // namespace tasket::platform
