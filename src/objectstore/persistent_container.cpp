#include "objectstore/persistent_container.h"

#include <stdexcept>

namespace tasket::objectstore {

PersistentContainer::PersistentContainer(std::string name, std::shared_ptr<const Model> model)
    : m_name(std::move(name)), m_model(std::move(model)) {}

void PersistentContainer::loadPersistentStores(const LoadCompletion& completion) {
    if (m_descriptions.empty()) {
        StoreDescription none;
        completion(none, platform::Error{platform::Errc::invalidArgument,
                                         "the container has no store description"});
        return;
    }
    const StoreDescription& description = m_descriptions.front();
    auto store = PersistentStore::open(description.url, m_model, description.options);
    if (!store) {
        completion(description, store.error());
        return;
    }
    m_store = *store;
    m_viewContext = ObjectContext::make(m_store, ConcurrencyType::mainQueue);
    m_viewContext->setWillSave(m_willSave);
    completion(description, std::nullopt);
}

std::shared_ptr<ObjectContext> PersistentContainer::newBackgroundContext() const {
    if (!m_store)
        throw std::logic_error("the container's store is not loaded");
    auto context = ObjectContext::make(m_store, ConcurrencyType::privateQueue);
    context->setWillSave(m_willSave);
    return context;
}

void PersistentContainer::setWillSave(ObjectContext::WillSave hook) {
    m_willSave = std::move(hook);
    if (m_viewContext)
        m_viewContext->setWillSave(m_willSave);
}

} // namespace tasket::objectstore
