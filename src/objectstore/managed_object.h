// One object of the graph, owned by one context. It starts as a fault (only
// its identity) and loads its row on first access. Setting a relationship
// keeps the inverse side in step; the context tracks what changed so save
// can write only that. Use an object only on its context's queue.
// Misuse (an unknown property name, a to-one used as a to-many, a target of
// the wrong entity, an Int16 out of range, an object no longer in a
// context) is a programmer error and throws a std::logic_error. A fault
// whose row cannot be loaded stops the process through platform::fatal,
// since accessors have no error path; ObjectContext::fireFaults() and
// existingObject() load rows with errors returned instead.
#pragma once

#include "objectstore/model/object_view.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tasket::objectstore {

class ObjectContext;
class ManagedObject;
using ObjectPtr = std::shared_ptr<ManagedObject>;

/// The members of a to-many relationship: insertion order kept, membership
/// in constant time (lists hold thousands of tasks).
class ObjectIDSet {
  public:
    ObjectIDSet() = default;
    explicit ObjectIDSet(std::vector<ObjectID> ids);
    [[nodiscard]] bool contains(ObjectID id) const { return m_index.count(id) > 0; }
    /// False when already present.
    bool insert(ObjectID id);
    /// False when absent.
    bool erase(ObjectID id);
    [[nodiscard]] const std::vector<ObjectID>& ids() const { return m_ids; }
    [[nodiscard]] std::size_t size() const { return m_ids.size(); }

  private:
    std::vector<ObjectID> m_ids;
    std::unordered_map<ObjectID, std::size_t, ObjectIDHash> m_index;
};

class ManagedObject : public ObjectView, public std::enable_shared_from_this<ManagedObject> {
  public:
    ManagedObject() = default;
    ~ManagedObject() override = default;
    ManagedObject(const ManagedObject&) = delete;
    ManagedObject& operator=(const ManagedObject&) = delete;

    // Identity and state
    [[nodiscard]] const EntityDescription& entityDescription() const override { return *m_entity; }
    [[nodiscard]] ObjectID objectID() const override { return m_id; }
    /// The owning context; nullptr once the object was deleted and saved or
    /// the context is gone.
    [[nodiscard]] ObjectContext* context() const { return m_context; }
    [[nodiscard]] bool isFault() const { return !m_loaded; }
    /// Loaded in part (a fetch that named its attributes): the others are
    /// read when one of them is first touched or the object changes.
    [[nodiscard]] bool isPartial() const { return m_unfetched != nullptr; }
    [[nodiscard]] bool isInserted() const { return m_inserted; }
    [[nodiscard]] bool isDeleted() const { return m_deleted; }
    [[nodiscard]] bool isUpdated() const;
    [[nodiscard]] bool hasChanges() const { return m_inserted || m_deleted || isUpdated(); }
    [[nodiscard]] bool isPropertyChanged(std::size_t property) const;
    /// Properties changed since the last save, by index.
    [[nodiscard]] std::vector<std::size_t> changedProperties() const;

    // Attributes. Reading fires the fault; a row that has vanished reads as
    // nil when the context deletes inaccessible faults.
    [[nodiscard]] const Value& value(std::size_t attribute) const;
    void setValue(std::size_t attribute, Value v);
    [[nodiscard]] const Value& value(std::string_view name) const;
    void setValue(std::string_view name, Value v);
    /// Makes the coming save write the integer attribute as the value stored
    /// at that moment plus one, at most `maximum`, whatever this context last
    /// read of it (an inserted object: its own value plus one). Until then
    /// the object holds its own value plus one; once saved, what was written.
    /// Setting the attribute before the save cancels the raise.
    void raiseOnSave(std::size_t attribute, std::int64_t maximum);

    // Relationships (property indexes)
    [[nodiscard]] ObjectPtr toOne(std::size_t property) const;
    [[nodiscard]] ObjectID toOneID(std::size_t property) const;
    void setToOne(std::size_t property, const ObjectPtr& target);
    [[nodiscard]] std::vector<ObjectPtr> toMany(std::size_t property) const;
    [[nodiscard]] const std::vector<ObjectID>& toManyIDs(std::size_t property) const;
    void addToMany(std::size_t property, const ObjectPtr& target);
    void removeFromMany(std::size_t property, const ObjectPtr& target);
    /// The index of the named property. An unknown name is a programmer
    /// error: std::out_of_range.
    [[nodiscard]] std::size_t propertyIndex(std::string_view name) const;

    // ObjectView
    [[nodiscard]] Value attributeValue(std::size_t property) const override {
        return value(property);
    }
    [[nodiscard]] std::shared_ptr<const ObjectView>
    relatedObject(std::size_t property) const override {
        return toOne(property);
    }
    [[nodiscard]] std::vector<std::shared_ptr<const ObjectView>>
    relatedObjects(std::size_t property) const override;

  private:
    friend class ObjectContext;

    struct State {
        std::vector<Value> attributes;
        std::vector<ObjectID> toOne;                    // per relationship
        std::vector<std::optional<ObjectIDSet>> toMany; // per relationship; nullopt = not loaded
    };

    void fire() const;
    // fire(), then the attributes a partial load left out.
    void fireWhole() const;
    void willChange(std::size_t property);
    void loadToMany(std::size_t relationship) const;
    // Inverse bookkeeping without recursion.
    void linkInverse(std::size_t relationship, ObjectID target, bool add);
    void rawAdd(std::size_t relationship, ObjectID id);
    void rawRemove(std::size_t relationship, ObjectID id);

    ObjectContext* m_context = nullptr;
    const EntityDescription* m_entity = nullptr;
    ObjectID m_id;
    std::int64_t m_version = 0;
    mutable bool m_loaded = false;
    mutable std::shared_ptr<const std::vector<bool>> m_unfetched; // per attribute; null: whole
    bool m_inserted = false;
    bool m_deleted = false;
    mutable State m_state;
    std::optional<State> m_snapshot; // the committed state, kept from the first change
    std::vector<bool> m_changed;     // per property
    std::vector<std::pair<std::size_t, std::int64_t>> m_raised; // attribute, maximum
};

} // namespace tasket::objectstore
