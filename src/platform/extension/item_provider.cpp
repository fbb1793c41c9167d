#include "platform/extension/item_provider.h"

#include "platform/extension/type_identifier.h"
#include "platform/serial_queue.h"

#include <fmt/format.h>

#include <algorithm>

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

void ItemProvider::loadItem(std::string_view type, Completion completion) const {
    const std::vector<std::string> registered = registeredTypeIdentifiers();
    const auto match = std::ranges::find_if(
        registered, [&](const std::string& candidate) { return typeConforms(candidate, type); });
    if (match == registered.end()) {
        itemLoadingQueue().async(
            [completion = std::move(completion),
             error = Error{Errc::notFound,
                           fmt::format("the shared item offers nothing of type {}", type)}] {
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
    auto promise = std::make_shared<std::promise<Result<LoadedItem>>>();
    auto future = promise->get_future();
    loadItem(type, [promise](Result<LoadedItem> result) { promise->set_value(std::move(result)); });
    return future;
}

} // namespace tasket::platform
