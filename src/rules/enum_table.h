// The one mechanism behind every closed enumeration of the domain. Each
// enumeration specialises EnumTraits with a single table of its cases in
// declaration order (value, case name, display title); listing, storing,
// parsing and titling are generic functions over that table, so adding an
// enumeration never means writing another switch.
//
// Stored form: the integer code of a case is its position in the table,
// counted from 0; the string-valued enumerations store the case name itself.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tasket::rules {

/// How an enumeration is persisted.
enum class EnumStorage {
    code, // integer: the case's position in declaration order
    name, // text: the case name, matched exactly
};

template <class E> struct EnumCase {
    E value;
    std::string_view name;  // as the domain spells it; the stored text of name-stored enums
    std::string_view title; // English display title shown in pickers
};

/// Specialised once per enumeration with:
///   static constexpr std::string_view typeName;
///   static constexpr EnumStorage storage;
///   static constexpr std::array<EnumCase<E>, N> cases;  // declaration order
template <class E> struct EnumTraits;

template <class E>
concept DomainEnum = std::is_enum_v<E> && requires {
    { EnumTraits<E>::typeName } -> std::convertible_to<std::string_view>;
    { EnumTraits<E>::storage } -> std::convertible_to<EnumStorage>;
    EnumTraits<E>::cases;
};

template <class E>
concept CodeStoredEnum = DomainEnum<E> && EnumTraits<E>::storage == EnumStorage::code;

template <class E>
concept NameStoredEnum = DomainEnum<E> && EnumTraits<E>::storage == EnumStorage::name;

// ---- Listing ---------------------------------------------------------------

template <DomainEnum E> constexpr std::size_t caseCount() {
    return EnumTraits<E>::cases.size();
}

template <DomainEnum E> constexpr std::string_view typeName() {
    return EnumTraits<E>::typeName;
}

/// Every case with its name and title, in declaration order.
template <DomainEnum E> constexpr std::span<const EnumCase<E>> caseTable() {
    return EnumTraits<E>::cases;
}

/// Every case in declaration order.
template <DomainEnum E> constexpr std::array<E, caseCount<E>()> allCases() {
    std::array<E, caseCount<E>()> values{};
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = EnumTraits<E>::cases[i].value;
    return values;
}

/// The table row of `value`. Throws std::out_of_range for a value that is not
/// one of the cases (a cast from an unchecked number: a programmer error).
template <DomainEnum E> constexpr const EnumCase<E>& caseEntry(E value) {
    const auto index = static_cast<std::size_t>(std::to_underlying(value));
    if (index >= caseCount<E>())
        throw std::out_of_range("not a case of this enumeration");
    return EnumTraits<E>::cases[index];
}

template <DomainEnum E> constexpr std::string_view caseName(E value) {
    return caseEntry(value).name;
}

template <DomainEnum E> constexpr std::string_view displayTitle(E value) {
    return caseEntry(value).title;
}

/// The case spelled exactly `name`, for any enumeration; nullopt otherwise.
template <DomainEnum E> constexpr std::optional<E> fromCaseName(std::string_view name) {
    for (const auto& c : EnumTraits<E>::cases)
        if (c.name == name)
            return c.value;
    return std::nullopt;
}

// ---- Stored values ---------------------------------------------------------

template <CodeStoredEnum E> constexpr std::int64_t toStored(E value) {
    (void)caseEntry(value); // rejects a value that is not a case
    return static_cast<std::int64_t>(std::to_underlying(value));
}

template <NameStoredEnum E> constexpr std::string_view toStored(E value) {
    return caseEntry(value).name;
}

/// The case whose code is `code`; nullopt for any other number.
template <CodeStoredEnum E> constexpr std::optional<E> fromStored(std::int64_t code) {
    if (code < 0 || static_cast<std::uint64_t>(code) >= caseCount<E>())
        return std::nullopt;
    return EnumTraits<E>::cases[static_cast<std::size_t>(code)].value;
}

/// The case whose stored text is exactly `text` (case-sensitive); nullopt otherwise.
template <NameStoredEnum E> constexpr std::optional<E> fromStored(std::string_view text) {
    return fromCaseName<E>(text);
}

// ---- Table checks ------------------------------------------------------------

/// True when the table lists the enumerators in declaration order (row i holds
/// the enumerator whose underlying value is i), and names and titles are
/// present and names unique. Every enumeration header static_asserts this.
template <DomainEnum E> consteval bool isWellFormedTable() {
    const auto& cases = EnumTraits<E>::cases;
    if (cases.empty())
        return false;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        if (static_cast<std::size_t>(std::to_underlying(cases[i].value)) != i)
            return false;
        if (cases[i].name.empty() || cases[i].title.empty())
            return false;
        for (std::size_t j = 0; j < i; ++j)
            if (cases[j].name == cases[i].name)
                return false;
    }
    return true;
}

} // namespace tasket::rules
