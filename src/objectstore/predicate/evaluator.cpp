#include "objectstore/predicate/evaluator.h"

#include "objectstore/predicate/detail/key_path_reader.h"
#include "objectstore/predicate/detail/scalar_compare.h"
#include "objectstore/predicate/detail/text.h"

namespace tasket::objectstore {

namespace {

using Op = ComparisonOperator;

bool test(const Scalar& a, Op op, std::uint8_t options, const Scalar* b, const ScalarList* list) {
    switch (op) {
    case Op::equal: return detail::equalScalars(a, *b, options);
    case Op::notEqual: return !detail::equalScalars(a, *b, options);
    case Op::less:
    case Op::lessOrEqual:
    case Op::greater:
    case Op::greaterOrEqual: {
        auto order = detail::compareScalars(a, *b, options);
        if (!order)
            return false;
        switch (op) {
        case Op::less: return *order < 0;
        case Op::lessOrEqual: return *order <= 0;
        case Op::greater: return *order > 0;
        default: return *order >= 0;
        }
    }
    case Op::between: {
        auto low = detail::compareScalars(a, (*list)[0], options);
        auto high = detail::compareScalars(a, (*list)[1], options);
        return low && high && *low >= 0 && *high <= 0;
    }
    case Op::in:
        for (const auto& item : *list)
            if (detail::equalScalars(a, item, options))
                return true;
        return false;
    case Op::contains:
    case Op::beginsWith:
    case Op::endsWith:
    case Op::like: {
        const auto* text = std::get_if<std::string>(&a);
        const auto* part = std::get_if<std::string>(b);
        if (!text || !part)
            return false;
        if (op == Op::contains)
            return detail::textContains(*text, *part, options);
        if (op == Op::beginsWith)
            return detail::textBeginsWith(*text, *part, options);
        if (op == Op::endsWith)
            return detail::textEndsWith(*text, *part, options);
        return detail::textLike(*text, *part, options);
    }
    }
    return false;
}

class Evaluator {
  public:
    explicit Evaluator(const Model& model) : m_reader(model) {}

    bool node(const BoundNode& n, const ObjectView& object) const {
        switch (n.kind) {
        case Predicate::Kind::constant: return n.value;
        case Predicate::Kind::comparison: return comparison(n.comparison, object);
        case Predicate::Kind::conjunction:
            for (const auto& child : n.children)
                if (!node(child, object))
                    return false;
            return true;
        case Predicate::Kind::disjunction:
            for (const auto& child : n.children)
                if (node(child, object))
                    return true;
            return false;
        case Predicate::Kind::negation: return !node(n.children.front(), object);
        }
        return false;
    }

  private:
    Scalar operand(const BoundOperand& o, const ObjectView& object) const {
        if (const auto* path = std::get_if<BoundKeyPath>(&o))
            return m_reader.value(*path, object);
        if (const auto* scalar = std::get_if<Scalar>(&o))
            return *scalar;
        return {};
    }

    bool comparison(const BoundComparison& c, const ObjectView& object) const {
        const auto* list = std::get_if<ScalarList>(&c.rhs);
        const Scalar rhs = operand(c.rhs, object);
        if (c.quantifier == Quantifier::direct)
            return test(operand(c.lhs, object), c.op, c.options, &rhs, list);

        const auto& path = std::get<BoundKeyPath>(c.lhs);
        if (c.testsEmptiness) {
            const bool empty = m_reader.collectionSize(path, object) == 0;
            return c.op == Op::equal ? empty : !empty;
        }
        const bool all = c.quantifier == Quantifier::all;
        bool result = all;
        m_reader.forEachElement(path, object, [&](const Scalar& element) {
            if (test(element, c.op, c.options, &rhs, list) != all) {
                result = !all;
                return false; // decided
            }
            return true;
        });
        return result;
    }

    detail::KeyPathReader m_reader;
};

} // namespace

bool evaluate(const BoundPredicate& predicate, const ObjectView& object) {
    return Evaluator(predicate.model()).node(predicate.root(), object);
}

} // namespace tasket::objectstore
