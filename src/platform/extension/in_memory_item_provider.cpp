#include "platform/extension/in_memory_item_provider.h"

#include <algorithm>

namespace tasket::platform {

std::shared_ptr<InMemoryItemProvider> InMemoryItemProvider::make() {
    return std::make_shared<InMemoryItemProvider>();
}

std::shared_ptr<InMemoryItemProvider> InMemoryItemProvider::make(std::string type,
                                                                 Result<LoadedItem> value) {
    auto provider = make();
    provider->registerItem(std::move(type), std::move(value));
    return provider;
}

void InMemoryItemProvider::registerItem(std::string type, Result<LoadedItem> value) {
    const auto existing = std::ranges::find(m_representations, type,
                                            &std::pair<std::string, Result<LoadedItem>>::first);
    if (existing != m_representations.end())
        existing->second = std::move(value);
    else
        m_representations.emplace_back(std::move(type), std::move(value));
}

std::vector<std::string> InMemoryItemProvider::registeredTypeIdentifiers() const {
    std::vector<std::string> types;
    types.reserve(m_representations.size());
    for (const auto& [type, value] : m_representations)
        types.push_back(type);
    return types;
}

Result<LoadedItem> InMemoryItemProvider::loadRepresentation(std::string_view registeredType) const {
    const auto it = std::ranges::find(m_representations, registeredType,
                                      &std::pair<std::string, Result<LoadedItem>>::first);
    // loadItem() only asks for a registered type.
    return it->second;
}

} // namespace tasket::platform
