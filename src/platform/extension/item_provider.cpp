#include "platform/extension/item_provider.h"

#include "platform/extension/type_identifier.h"
#include "platform/serial_queue.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace tasket::platform {
namespace {

// One loading thread for the process. Deliberately never destroyed: a load
// still queued at exit must not run against objects already torn down.
SerialQueue& itemLoadingQueue() {
    static auto* queue = new SerialQueue("tasket.item-loading");
    return *queue;
}

} // namespace

ItemProvider::~ItemProvider() = default;

bool ItemProvider::hasItemConformingTo(std::string_view type) const {
    return std::ranges::any_of(registeredTypeIdentifiers(), [&](const std::string& registered) {
        return typeConforms(registered, type);
    });
}

namespace {

Error nothingOfType(std::string_view type) {
    return Error{Errc::notFound, fmt::format("the shared item offers nothing of type {}", type)};
}

} // namespace

std::optional<std::string> ItemProvider::conformingType(std::string_view type) const {
    const std::vector<std::string> registered = registeredTypeIdentifiers();
    const auto match = std::ranges::find_if(
        registered, [&](const std::string& candidate) { return typeConforms(candidate, type); });
    if (match == registered.end())
        return std::nullopt;
    return *match;
}

void ItemProvider::loadItem(std::string_view type, Completion completion) const {
    const auto match = conformingType(type);
    if (!match) {
        itemLoadingQueue().async([completion = std::move(completion), error = nothingOfType(type)] {
            completion(std::unexpected(error));
        });
        return;
    }
    itemLoadingQueue().async(
        [self = shared_from_this(), registeredType = *match, completion = std::move(completion)] {
            completion(self->loadRepresentation(registeredType));
        });
}

std::future<Result<LoadedItem>> ItemProvider::loadItem(std::string_view type) const {
    std::promise<Result<LoadedItem>> promise;
    const auto match = conformingType(type);
    promise.set_value(match ? loadRepresentation(*match) : std::unexpected(nothingOfType(type)));
    return promise.get_future();
}

} // namespace tasket::platform
