// The mechanism behind every enumeration: each case round-trips through its
// stored value and name, and anything else is refused. The cases themselves,
// their codes and quoted titles are in the golden table (tests/store/golden_test).
#include "rules/duplication.h"
#include "rules/enumerations.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

using namespace tasket::rules;

namespace {

template <class> struct ToGTestTypes;
template <class... E> struct ToGTestTypes<EnumList<E...>> { using type = ::testing::Types<E...>; };

template <class E> class EveryEnumeration : public ::testing::Test {};
TYPED_TEST_SUITE(EveryEnumeration, ToGTestTypes<AllEnumerations>::type);

} // namespace

TYPED_TEST(EveryEnumeration, EveryCaseRoundTripsAndAnythingElseIsRefused) {
    using E = TypeParam;
    for (const E value : allCases<E>()) {
        SCOPED_TRACE(std::string(typeName<E>()) + "." + std::string(caseName(value)));
        EXPECT_EQ(fromCaseName<E>(caseName(value)), value);
        EXPECT_EQ(fromStored<E>(toStored(value)), value);
        if constexpr (CodeStoredEnum<E>)
            EXPECT_EQ(toStored(value), std::to_underlying(value));
        else
            EXPECT_EQ(toStored(value), caseName(value));
    }
    if constexpr (CodeStoredEnum<E>) {
        const auto count = static_cast<std::int64_t>(caseCount<E>());
        for (std::int64_t bad : {std::int64_t{-1}, count, std::numeric_limits<std::int64_t>::min()})
            EXPECT_FALSE(fromStored<E>(bad)) << typeName<E>() << " " << bad;
    } else {
        const std::string name(caseTable<E>()[0].name);
        std::string capitalised = name;
        capitalised[0] = static_cast<char>(capitalised[0] - 'a' + 'A');
        for (const std::string& bad : {capitalised, name + " ", name.substr(0, name.size() - 1)})
            EXPECT_FALSE(fromStored<E>(bad)) << typeName<E>() << " '" << bad << "'";
    }
    EXPECT_FALSE(fromCaseName<E>("nonexistentCase"));
    // A value outside the table is a programmer error.
    const auto bogus = static_cast<E>(caseCount<E>());
    EXPECT_THROW((void)caseName(bogus), std::out_of_range);
    EXPECT_THROW((void)toStored(bogus), std::out_of_range);
}

TEST(Enumerations, DuplicationTitlesNameTheObjectAndItsChildren) {
    using enum TK_DuplicationType;
    const std::tuple<TK_DuplicationType, TK_ObjectType, std::optional<std::string>> cases[] = {
        {only, TK_ObjectType::category, "Duplicate Category"},
        {with, TK_ObjectType::category, "Category with Tasks"},
        {with, TK_ObjectType::task, "Task with Subtasks"},
        {with, TK_ObjectType::attribute, "Attribute with Values"},
        {with, TK_ObjectType::subtask, std::nullopt},
        {none, TK_ObjectType::task, std::nullopt},
        {only, TK_ObjectType::none, std::nullopt},
    };
    for (const auto& [type, object, title] : cases)
        EXPECT_EQ(duplicationTitle(type, object), title)
            << caseName(type) << " " << caseName(object);
}
