// How the record classes get their typed accessors: a record's header puts
// TK_RECORD_INTERFACE(Class) in its class body and its source file puts
// TK_RECORD_DEFINITIONS(Class) at namespace scope; both expand the class's
// list in tk_data_model.def. Per property kind:
//
//   String, Date, Binary, UUID  std::optional<T> name() const;  void setName(std::optional<T>)
//   Bool, Int16, Double         T name() const;                 void setName(T)   (nil reads as 0)
//   enumeration                 std::int16_t name() const;       void setName(std::int16_t)
//                               std::optional<E> nameCase() const (nullopt: no case has the code)
//                               void setName(E)
//   to-one                      std::shared_ptr<D> name() const; void setName(const
//   std::shared_ptr<D>&) to-many                     std::vector<std::shared_ptr<D>> name() const;
//                               void addToName(const std::shared_ptr<D>&)
//                               void removeFromName(const std::shared_ptr<D>&)
#pragma once

#include "objectstore/fetch_request.h"
#include "objectstore/managed_object.h"
#include "objectstore/object_context.h"
#include "rules/enumerations.h"
#include "store/detail/tk_data_schema.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tasket::store::detail {

using objectstore::AttributeType;
using objectstore::Value;

/// Converts between an attribute's stored Value and its C++ type.
template <AttributeType> struct Accessor;

template <class T> struct OptionalAccessor {
    using Type = std::optional<T>;
    static Type read(const Value& v) {
        if (const T* t = std::get_if<T>(&v))
            return *t;
        return std::nullopt;
    }
    static Value write(Type v) { return v ? Value(std::move(*v)) : Value(); }
};

template <> struct Accessor<AttributeType::String> : OptionalAccessor<std::string> {};
template <> struct Accessor<AttributeType::Date> : OptionalAccessor<platform::Date> {};
template <> struct Accessor<AttributeType::Binary> : OptionalAccessor<objectstore::Bytes> {};
template <> struct Accessor<AttributeType::UUID> : OptionalAccessor<platform::Uuid> {};

template <> struct Accessor<AttributeType::Bool> {
    using Type = bool;
    static Type read(const Value& v) {
        if (const bool* b = std::get_if<bool>(&v))
            return *b;
        if (const std::int64_t* i = std::get_if<std::int64_t>(&v))
            return *i != 0;
        return false;
    }
    static Value write(Type v) { return Value(v); }
};

template <> struct Accessor<AttributeType::Int16> {
    using Type = std::int16_t;
    static Type read(const Value& v) {
        if (const std::int64_t* i = std::get_if<std::int64_t>(&v))
            return static_cast<Type>(*i);
        return 0;
    }
    static Value write(Type v) { return Value(static_cast<std::int64_t>(v)); }
};

template <> struct Accessor<AttributeType::Double> {
    using Type = double;
    static Type read(const Value& v) {
        if (const double* d = std::get_if<double>(&v))
            return *d;
        if (const std::int64_t* i = std::get_if<std::int64_t>(&v))
            return static_cast<double>(*i);
        return 0.0;
    }
    static Value write(Type v) { return Value(v); }
};

template <rules::CodeStoredEnum E> std::optional<E> readCase(const Value& v) {
    return rules::fromStored<E>(Accessor<AttributeType::Int16>::read(v));
}

template <rules::CodeStoredEnum E> Value writeCase(E value) {
    return Value(rules::toStored(value));
}

template <class Record> std::shared_ptr<Record> downcast(objectstore::ObjectPtr object) {
    // The model's factories make every object of Record's entity a Record.
    return std::static_pointer_cast<Record>(std::move(object));
}

template <class Record>
std::vector<std::shared_ptr<Record>> downcast(std::vector<objectstore::ObjectPtr> objects) {
    std::vector<std::shared_ptr<Record>> out;
    out.reserve(objects.size());
    for (auto& object : objects)
        out.push_back(downcast<Record>(std::move(object)));
    return out;
}

} // namespace tasket::store::detail

// ---- Declarations (inside the class body) --------------------------------------

#define TK_RECORD_ACCESSOR_TYPE(Storage)                                                           \
    ::tasket::store::detail::Accessor<::tasket::objectstore::AttributeType::Storage>::Type

#define TK_RECORD_DECLARE(C, kind, ...) TK_RECORD_DECLARE_##kind(__VA_ARGS__)
#define TK_RECORD_DECLARE_ATTRIBUTE(name, Name, Type)                                              \
    TK_RECORD_ACCESSOR_TYPE(Type) name() const;                                                    \
    void set##Name(TK_RECORD_ACCESSOR_TYPE(Type) newValue);
#define TK_RECORD_DECLARE_IDENTIFIER TK_RECORD_DECLARE_ATTRIBUTE
#define TK_RECORD_DECLARE_ENUM(name, Name, Enumeration)                                            \
    std::int16_t name() const;                                                                     \
    void set##Name(std::int16_t code);                                                             \
    std::optional<::tasket::rules::Enumeration> name##Case() const;                                \
    void set##Name(::tasket::rules::Enumeration newCase);
#define TK_RECORD_DECLARE_TO_ONE(name, Name, Destination, inverse, Rule)                           \
    std::shared_ptr<Destination> name() const;                                                     \
    void set##Name(const std::shared_ptr<Destination>& object);
#define TK_RECORD_DECLARE_TO_MANY(name, Name, Destination, inverse, Rule)                          \
    std::vector<std::shared_ptr<Destination>> name() const;                                        \
    void addTo##Name(const std::shared_ptr<Destination>& object);                                  \
    void removeFrom##Name(const std::shared_ptr<Destination>& object);

/// The public interface of record class `Class`: its entity name, a fetch
/// request for it, insertion into a context, and a typed accessor for every
/// property.
#define TK_RECORD_INTERFACE(Class)                                                                 \
    static constexpr std::string_view entityName = #Class;                                         \
    /** A fetch request for every object of this entity. */                                        \
    static ::tasket::objectstore::FetchRequest fetchRequest();                                     \
    /** A new object of this entity in `context` (a TK_Data context), with its defaults. */        \
    static std::shared_ptr<Class> insertNew(::tasket::objectstore::ObjectContext& context);        \
    using ::tasket::objectstore::ManagedObject::setValue;                                          \
    using ::tasket::objectstore::ManagedObject::value;                                             \
    TK_DATA_##Class(TK_RECORD_DECLARE, Class)

// ---- Definitions (at namespace scope in tasket::store) ---------------------------

#define TK_RECORD_PROPERTY(C, name) ::tasket::store::detail::Schema<C>::Property::name

#define TK_RECORD_DEFINE(C, kind, ...) TK_RECORD_DEFINE_##kind(C, __VA_ARGS__)
#define TK_RECORD_DEFINE_ATTRIBUTE(C, name, Name, Type)                                            \
    TK_RECORD_ACCESSOR_TYPE(Type) C::name() const {                                                \
        return ::tasket::store::detail::Accessor<::tasket::objectstore::AttributeType::Type>::     \
            read(ManagedObject::value(TK_RECORD_PROPERTY(C, name)));                               \
    }                                                                                              \
    void C::set##Name(TK_RECORD_ACCESSOR_TYPE(Type) newValue) {                                    \
        ManagedObject::setValue(                                                                   \
            TK_RECORD_PROPERTY(C, name),                                                           \
            ::tasket::store::detail::Accessor<::tasket::objectstore::AttributeType::Type>::write(  \
                std::move(newValue)));                                                             \
    }
#define TK_RECORD_DEFINE_IDENTIFIER TK_RECORD_DEFINE_ATTRIBUTE
#define TK_RECORD_DEFINE_ENUM(C, name, Name, Enumeration)                                          \
    TK_RECORD_DEFINE_ATTRIBUTE(C, name, Name, Int16)                                               \
    std::optional<::tasket::rules::Enumeration> C::name##Case() const {                            \
        return ::tasket::store::detail::readCase<::tasket::rules::Enumeration>(                    \
            ManagedObject::value(TK_RECORD_PROPERTY(C, name)));                                    \
    }                                                                                              \
    void C::set##Name(::tasket::rules::Enumeration newCase) {                                      \
        ManagedObject::setValue(TK_RECORD_PROPERTY(C, name),                                       \
                                ::tasket::store::detail::writeCase(newCase));                      \
    }
#define TK_RECORD_DEFINE_TO_ONE(C, name, Name, Destination, inverse, Rule)                         \
    std::shared_ptr<Destination> C::name() const {                                                 \
        return ::tasket::store::detail::downcast<Destination>(                                     \
            ManagedObject::toOne(TK_RECORD_PROPERTY(C, name)));                                    \
    }                                                                                              \
    void C::set##Name(const std::shared_ptr<Destination>& object) {                                \
        ManagedObject::setToOne(TK_RECORD_PROPERTY(C, name), object);                              \
    }
#define TK_RECORD_DEFINE_TO_MANY(C, name, Name, Destination, inverse, Rule)                        \
    std::vector<std::shared_ptr<Destination>> C::name() const {                                    \
        return ::tasket::store::detail::downcast<Destination>(                                     \
            ManagedObject::toMany(TK_RECORD_PROPERTY(C, name)));                                   \
    }                                                                                              \
    void C::addTo##Name(const std::shared_ptr<Destination>& object) {                              \
        ManagedObject::addToMany(TK_RECORD_PROPERTY(C, name), object);                             \
    }                                                                                              \
    void C::removeFrom##Name(const std::shared_ptr<Destination>& object) {                         \
        ManagedObject::removeFromMany(TK_RECORD_PROPERTY(C, name), object);                        \
    }

/// The out-of-line definitions of everything TK_RECORD_INTERFACE declares.
#define TK_RECORD_DEFINITIONS(Class)                                                               \
    ::tasket::objectstore::FetchRequest Class::fetchRequest() {                                    \
        return ::tasket::objectstore::FetchRequest(std::string(entityName));                       \
    }                                                                                              \
    std::shared_ptr<Class> Class::insertNew(::tasket::objectstore::ObjectContext& context) {       \
        return ::tasket::store::detail::downcast<Class>(context.insertNewObject(entityName));      \
    }                                                                                              \
    TK_DATA_##Class(TK_RECORD_DEFINE, Class)
