// A predicate bound to one entity of a model: every key path resolved to
// property steps, every comparison type-checked, and constants converted to
// the types of the properties they meet. The SQL compiler and the in-memory
// evaluator both read this form, which is why it is public; it is immutable,
// shared by value, and must not outlive the model it was bound to.
#pragma once

#include "objectstore/model/model.h"
#include "objectstore/predicate/predicate.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tasket::objectstore {

/// What a key path or constant yields, as far as comparing goes. Bool, the
/// integer types and Double are all numbers.
enum class ValueKind { nil, number, text, date, uuid, binary, object };

struct PropertyStep {
    std::uint32_t entity = 0; // the entity that has the property
    std::size_t property = 0; // its property index in that entity
};

struct BoundKeyPath {
    std::vector<PropertyStep> steps;
    std::optional<std::size_t> toManyStep; // index of the one to-many relationship step
    bool count = false;                    // ends in @count; the last step is the to-many
    ValueKind kind = ValueKind::nil;       // what the path yields (per element after a to-many)
    std::uint32_t objectEntity = 0;        // for ValueKind::object: the entity of those objects
    std::string text;                      // as written, for messages
    std::size_t position = 0;

    /// The path ends at a to-many relationship itself ("tags").
    [[nodiscard]] bool endsAtCollection() const {
        return toManyStep && *toManyStep + 1 == steps.size() && !count;
    }
};

/// Resolves `path` from `entity` through the model: attributes, to-one
/// hops, at most one to-many step and a final @count. Fails with
/// invalidArgument naming the key and its offset.
[[nodiscard]] Result<BoundKeyPath> resolveKeyPath(const Model& model, std::uint32_t entity,
                                                  const KeyPath& path);

using BoundOperand = std::variant<BoundKeyPath, Scalar, ScalarList>;

struct BoundComparison {
    /// direct when no to-many relationship is crossed (or it is counted);
    /// NONE is bound as NOT (ANY ...), so only direct, any and all remain.
    Quantifier quantifier = Quantifier::direct;
    BoundOperand lhs; // the side with the to-many step, if any
    ComparisonOperator op = ComparisonOperator::equal;
    std::uint8_t options = 0;
    BoundOperand rhs;
    /// "ANY rel = nil" / "ANY rel != nil" on a to-many relationship: op is
    /// equal for "is empty", notEqual for "is not empty".
    bool testsEmptiness = false;
};

struct BoundNode {
    Predicate::Kind kind = Predicate::Kind::constant;
    bool value = true;
    BoundComparison comparison;
    std::vector<BoundNode> children;
};

class BoundPredicate {
  public:
    /// Binds `predicate` to entity `entityIndex` of the finalized `model`.
    /// Fails with invalidArgument on an unknown key, a type mismatch or a
    /// misuse of a to-many key path; the message names the offset.
    [[nodiscard]] static Result<BoundPredicate> bind(const Predicate& predicate, const Model& model,
                                                     std::uint32_t entityIndex);

    [[nodiscard]] const Model& model() const { return *m_model; }
    [[nodiscard]] std::uint32_t entityIndex() const { return m_entity; }
    [[nodiscard]] const BoundNode& root() const { return *m_root; }

  private:
    BoundPredicate(std::shared_ptr<const BoundNode> root, const Model& model, std::uint32_t entity)
        : m_root(std::move(root)), m_model(&model), m_entity(entity) {}

    std::shared_ptr<const BoundNode> m_root;
    const Model* m_model;
    std::uint32_t m_entity;
};

} // namespace tasket::objectstore
