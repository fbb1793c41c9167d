// The persistent container: a named model, one store description, the
// loaded store, the view context (main queue) and background contexts.
// Loading reports its outcome to a completion, once per description.
#pragma once

#include "objectstore/object_context.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tasket::objectstore {

struct StoreDescription {
    std::filesystem::path url;
    StoreOptions options;
};

class PersistentContainer {
  public:
    using LoadCompletion =
        std::function<void(const StoreDescription&, const std::optional<platform::Error>&)>;

    PersistentContainer(std::string name, std::shared_ptr<const Model> model);

    [[nodiscard]] const std::string& name() const { return m_name; }
    [[nodiscard]] const Model& model() const { return *m_model; }
    /// The descriptions loadPersistentStores() opens; only the first one is
    /// used (one store per container).
    [[nodiscard]] std::vector<StoreDescription>& persistentStoreDescriptions() {
        return m_descriptions;
    }

    /// Opens the described store and calls `completion` with the outcome.
    void loadPersistentStores(const LoadCompletion& completion);
    [[nodiscard]] bool isLoaded() const { return m_store != nullptr; }
    [[nodiscard]] std::shared_ptr<PersistentStore> store() const { return m_store; }

    /// The main-queue context; created at load.
    [[nodiscard]] const std::shared_ptr<ObjectContext>& viewContext() const {
        return m_viewContext;
    }
    /// A new private-queue context on the store. Asking before the store
    /// loaded is a programmer error: std::logic_error.
    [[nodiscard]] std::shared_ptr<ObjectContext> newBackgroundContext() const;
    /// The will-save hook of every context the container makes (the view
    /// context included, also when already made).
    void setWillSave(ObjectContext::WillSave hook);

  private:
    std::string m_name;
    std::shared_ptr<const Model> m_model;
    std::vector<StoreDescription> m_descriptions;
    std::shared_ptr<PersistentStore> m_store;
    std::shared_ptr<ObjectContext> m_viewContext;
    ObjectContext::WillSave m_willSave;
};

} // namespace tasket::objectstore
