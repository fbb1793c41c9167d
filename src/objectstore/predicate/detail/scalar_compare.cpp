#include "objectstore/predicate/detail/scalar_compare.h"

#include "objectstore/predicate/detail/text.h"

#include <cmath>

namespace tasket::objectstore::detail {

namespace {

int sign(auto a, auto b) {
    return a < b ? -1 : (b < a ? 1 : 0);
}

// Exact comparison of an integer with a double, as SQLite makes it.
int compareIntDouble(std::int64_t i, double d) {
    if (d < -9223372036854775808.0)
        return 1;
    if (d >= 9223372036854775808.0)
        return -1;
    const auto truncated = static_cast<std::int64_t>(d);
    if (i != truncated)
        return i < truncated ? -1 : 1;
    const double fraction = d - static_cast<double>(truncated);
    return fraction > 0 ? -1 : (fraction < 0 ? 1 : 0);
}

struct Number {
    bool isInteger;
    std::int64_t integer;
    double real;
};

std::optional<Number> asNumber(const Scalar& s) {
    if (const auto* b = std::get_if<bool>(&s))
        return Number{true, *b ? 1 : 0, 0};
    if (const auto* i = std::get_if<std::int64_t>(&s))
        return Number{true, *i, 0};
    if (const auto* d = std::get_if<double>(&s))
        return Number{false, 0, *d};
    return std::nullopt;
}

int compareNumbers(const Number& a, const Number& b) {
    if (a.isInteger && b.isInteger)
        return sign(a.integer, b.integer);
    if (!a.isInteger && !b.isInteger)
        return sign(a.real, b.real);
    return a.isInteger ? compareIntDouble(a.integer, b.real) : -compareIntDouble(b.integer, a.real);
}

} // namespace

Scalar scalarFromValue(const Value& value, AttributeType type) {
    struct Visitor {
        AttributeType type;
        Scalar operator()(std::monostate) const { return {}; }
        Scalar operator()(bool b) const {
            return type == AttributeType::Double ? Scalar(b ? 1.0 : 0.0) : Scalar(b);
        }
        Scalar operator()(std::int64_t i) const {
            return type == AttributeType::Double ? Scalar(static_cast<double>(i)) : Scalar(i);
        }
        Scalar operator()(double d) const { return std::isnan(d) ? Scalar() : Scalar(d); }
        Scalar operator()(const std::string& s) const {
            if (type == AttributeType::UUID)
                if (auto uuid = Uuid::parse(s))
                    return *uuid;
            return s;
        }
        Scalar operator()(const Date& d) const {
            return std::isnan(d.secondsSinceReference) ? Scalar() : Scalar(d);
        }
        Scalar operator()(const Uuid& u) const { return u; }
        Scalar operator()(const Bytes& b) const { return b; }
    };
    return std::visit(Visitor{type}, value);
}

std::optional<int> compareScalars(const Scalar& a, const Scalar& b, std::uint8_t options) {
    if (auto x = asNumber(a)) {
        if (auto y = asNumber(b))
            return compareNumbers(*x, *y);
        return std::nullopt;
    }
    if (a.index() != b.index() || std::holds_alternative<std::monostate>(a))
        return std::nullopt;
    if (const auto* s = std::get_if<std::string>(&a)) {
        const auto& t = std::get<std::string>(b);
        if (options == 0)
            return sign(s->compare(t), 0);
        return sign(foldText(*s, options).compare(foldText(t, options)), 0);
    }
    if (const auto* d = std::get_if<Date>(&a))
        return sign(d->secondsSinceReference, std::get<Date>(b).secondsSinceReference);
    if (const auto* u = std::get_if<Uuid>(&a))
        return sign(u->bytes(), std::get<Uuid>(b).bytes());
    if (const auto* bytes = std::get_if<Bytes>(&a))
        return sign(*bytes, std::get<Bytes>(b));
    if (const auto* id = std::get_if<ObjectID>(&a)) {
        const auto& other = std::get<ObjectID>(b);
        if (id->entity != other.entity)
            return std::nullopt;
        return sign(id->key, other.key);
    }
    return std::nullopt;
}

bool equalScalars(const Scalar& a, const Scalar& b, std::uint8_t options) {
    const bool aNil = std::holds_alternative<std::monostate>(a);
    const bool bNil = std::holds_alternative<std::monostate>(b);
    if (aNil || bNil)
        return aNil && bNil;
    auto order = compareScalars(a, b, options);
    return order && *order == 0;
}

} // namespace tasket::objectstore::detail
