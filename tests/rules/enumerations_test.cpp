#include "rules/duplication.h"
#include "rules/enumerations.h"
#include "rules/identifiers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

using namespace tasket::rules;

namespace {

template <class> struct ToGTestTypes;
template <class... E> struct ToGTestTypes<EnumList<E...>> { using type = ::testing::Types<E...>; };

template <class E> class EveryEnumeration : public ::testing::Test {};
TYPED_TEST_SUITE(EveryEnumeration, ToGTestTypes<AllEnumerations>::type);

template <DomainEnum E> std::string joinedCaseNames() {
    std::string joined;
    for (const auto& c : caseTable<E>())
        joined += (joined.empty() ? "" : ",") + std::string(c.name);
    return joined;
}

} // namespace

TYPED_TEST(EveryEnumeration, EveryCaseRoundTripsThroughItsStoredValueAndName) {
    using E = TypeParam;
    const auto cases = allCases<E>();
    ASSERT_EQ(cases.size(), caseCount<E>());
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const E value = cases[i];
        SCOPED_TRACE(std::string(typeName<E>()) + "." + std::string(caseName(value)));
        EXPECT_EQ(fromCaseName<E>(caseName(value)), value);
        EXPECT_FALSE(displayTitle(value).empty());
        if constexpr (CodeStoredEnum<E>) {
            EXPECT_EQ(toStored(value), static_cast<std::int64_t>(i));
            EXPECT_EQ(fromStored<E>(toStored(value)), value);
        } else {
            EXPECT_EQ(toStored(value), caseName(value));
            EXPECT_EQ(fromStored<E>(toStored(value)), value);
        }
    }
}

TYPED_TEST(EveryEnumeration, UnknownStoredValuesFailInsteadOfGuessing) {
    using E = TypeParam;
    if constexpr (CodeStoredEnum<E>) {
        const auto count = static_cast<std::int64_t>(caseCount<E>());
        for (std::int64_t bad :
             {std::int64_t{-1}, count, count + 1, std::numeric_limits<std::int64_t>::max(),
              std::numeric_limits<std::int64_t>::min()})
            EXPECT_FALSE(fromStored<E>(bad)) << typeName<E>() << " " << bad;
    } else {
        for (const auto& c : caseTable<E>()) {
            std::string capitalised(c.name);
            capitalised[0] = static_cast<char>(capitalised[0] - 'a' + 'A');
            for (const std::string& bad : {capitalised, std::string(c.name) + " ",
                                           std::string(c.name).substr(0, c.name.size() - 1)})
                EXPECT_FALSE(fromStored<E>(bad)) << typeName<E>() << " '" << bad << "'";
        }
        EXPECT_FALSE(fromStored<E>(""));
    }
    EXPECT_FALSE(fromCaseName<E>("nonexistentCase"));
}

TEST(Enumerations, TypeNamesAreUniqueAndEveryNamedEnumerationIsPresent) {
    std::set<std::string_view> names;
    AllEnumerations::forEach([&]<class E>() { EXPECT_TRUE(names.insert(typeName<E>()).second); });
    EXPECT_EQ(names.size(), 64u);
}

// Orders the domain fixes (codes are tested by number, or stored by other
// programs); a reordering or a misspelt case fails here.
TEST(Enumerations, CasesFollowTheDomainDeclarationOrder) {
    const std::map<std::string_view, std::string_view> expected{
        {"TK_RepeatInterval", "none,daily,weekly,monthly,yearly,everyMinute,hourly"},
        {"TK_TasksFilter",
         "all,withReminder,withTags,withSubtasks,withPriority,withStatus,withValues,pinned,custom"},
        {"TK_ReminderFilter", "off,no,range,relative,overdue,upcoming"},
        {"TK_RelativeDate", "none,custom,yesterday,today,tomorrow"},
        {"TK_CategoryFilter", "off,yes"},
        {"TK_CompletedFilter", "off,no,yes"},
        {"TK_AttachmentsSmartFilter", "off,no,yes"},
        {"TK_SmartFilter",
         "completed,notes,url,reminder,category,subtask,tag,priority,status,value,pin,attachments"},
        {"TK_TintColor", "indigo,orange,purple,green,blue,pink,teal,yellow,red,gray,cyan,mint,"
                         "brown,primary,secondary"},
        {"TK_Appearance", "system,light,dark"},
        {"TK_TasksBoardType",
         "none,notCompletedCompleted,categories,tags,priorities,statuses,values,custom"},
        {"TK_TaskAction",
         "markAsDone,edit,title,notes,url,reminder,color,category,task,subtasks,tags,priority,"
         "status,pin,attachments,values,newSubtask,duplicate,archive,removeFromSection,delete"},
        {"TK_TaskActionsSection",
         "markAsDone,edit,titleNotesURL,reminder,color,categoryTaskSubtasksTagsPriorityStatus,pin,"
         "attachments,values,newSubtaskDuplicate,archiveRemoveFromSectionDelete"},
        {"TK_ObjectType", "none,folder,smartCategory,category,tag,priority,status,attribute,"
                          "attributeValue,boardSection,task,subtask,attachment"},
        {"TK_Color",
         "celestialBlue,cyan,teal,blue,sapphire,indigo,lightPurple,lavenderIndigo,purple,magenta,"
         "darkGreen,green,yellow,orange,softRed,raspberry,pink,red,gray,brown,verySoftBlue,"
         "veryDarkCyan,verySoftOrange,vividOrange,strongRed"},
        {"TK_IconSize",
         "custom,sixteenPixels,eighteenPixels,twentyPixels,twentyFourPixels,twentyEightPixels,"
         "thirtyTwoPixels,fortyEightPixels,fiftySixPixels,sixtyFourPixels,ninetySixPixels,"
         "twoHundredPixels"},
        {"TK_CalendarType", "none,reminder,event"},
        {"TK_ReminderInterruptionLevel", "passive,active,timeSensitive"},
        {"TK_UnassignedSectionPlacement", "none,first,last"},
        {"TK_RemindersDatabaseType", "all,exact,addOnly"},
        {"TK_Database", "tasket,tasketAndReminders,tasketAndRemindersAddOnly"},
        {"TK_AttachmentThumbnailType", "unknown,none,small,medium,large"},
        {"TK_AttachmentType", "none,image,file"},
        {"TK_TaskURLBadgeType", "always,never"},
        {"TK_TaskCategoryBadgeType", "ifNotInItsTasksList,always,never"},
        {"TK_TaskDueDateBadgeType", "ifReminderEnabled,always,never"},
    };
    std::size_t checked = 0;
    AllEnumerations::forEach([&]<class E>() {
        if (auto it = expected.find(typeName<E>()); it != expected.end()) {
            EXPECT_EQ(joinedCaseNames<E>(), it->second) << it->first;
            ++checked;
        }
    });
    EXPECT_EQ(checked, expected.size());
}

TEST(Enumerations, StringValuedOnesMatchExactly) {
    EXPECT_FALSE(fromStored<TK_TintColor>("Indigo"));
    EXPECT_EQ(fromStored<TK_TintColor>("indigo"), TK_TintColor::indigo);
    EXPECT_EQ(fromStored<TK_TintColor>("secondary"), TK_TintColor::secondary);
    EXPECT_FALSE(fromStored<TK_SmartFilter>("attachment"));
    EXPECT_EQ(fromStored<TK_SmartFilter>("attachments"), TK_SmartFilter::attachments);
    EXPECT_FALSE(fromStored<TK_Appearance>("System"));
    static_assert(NameStoredEnum<TK_TintColor> && NameStoredEnum<TK_Appearance> &&
                  NameStoredEnum<TK_SmartFilter>);
    std::size_t nameStored = 0;
    AllEnumerations::forEach([&]<class E>() { nameStored += NameStoredEnum<E> ? 1 : 0; });
    EXPECT_EQ(nameStored, 3u);
}

TEST(Enumerations, FixedCodesAreKept) {
    EXPECT_EQ(toStored(TK_RepeatInterval::yearly), 4);
    EXPECT_EQ(toStored(TK_RepeatInterval::everyMinute), 5);
    EXPECT_EQ(toStored(TK_RepeatInterval::hourly), 6);
    EXPECT_EQ(fromStored<TK_RepeatInterval>(6), TK_RepeatInterval::hourly);
    EXPECT_EQ(toStored(TK_CategoryFilter::yes), 1);
    EXPECT_FALSE(fromStored<TK_CategoryFilter>(2)); // there is no "no" category filter
    EXPECT_EQ(toStored(TK_ReminderFilter::upcoming), 5);
    EXPECT_EQ(toStored(TK_RelativeDate::tomorrow), 4);
    EXPECT_EQ(toStored(TK_TasksFilter::custom), 8);
    EXPECT_EQ(toStored(TK_PinFilter::yes), 2);
}

TEST(Enumerations, QuotedTitlesAreExact) {
    const std::pair<std::string_view, std::string_view> titles[] = {
        {displayTitle(TK_TasksBoardType::notCompletedCompleted), "Not Completed & Completed"},
        {displayTitle(TK_TasksBoardType::categories), "Categories"},
        {displayTitle(TK_TasksBoardType::tags), "Tags"},
        {displayTitle(TK_TasksBoardType::priorities), "Priorities"},
        {displayTitle(TK_TasksBoardType::statuses), "Statuses"},
        {displayTitle(TK_TasksBoardType::values), "Values"},
        {displayTitle(TK_Color::verySoftOrange), "Very Soft Orange"},
        {kReminderInterruptionLevelLabel, "Reminder Interruption Level"},
    };
    for (const auto& [actual, expected] : titles)
        EXPECT_EQ(actual, expected);
}

TEST(Enumerations, DuplicationTitlesNameTheObjectAndItsChildren) {
    using enum TK_DuplicationType;
    const struct {
        TK_DuplicationType type;
        TK_ObjectType object;
        std::optional<std::string> title;
    } cases[] = {
        {only, TK_ObjectType::category, "Duplicate Category"},
        {only, TK_ObjectType::attribute, "Duplicate Attribute"},
        {with, TK_ObjectType::category, "Category with Tasks"},
        {with, TK_ObjectType::task, "Task with Subtasks"},
        {with, TK_ObjectType::attribute, "Attribute with Values"},
        {with, TK_ObjectType::subtask, std::nullopt},
        {none, TK_ObjectType::task, std::nullopt},
        {only, TK_ObjectType::none, std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(duplicationTitle(c.type, c.object), c.title)
            << caseName(c.type) << " " << caseName(c.object);
}

TEST(Enumerations, AValueOutsideTheTableIsAProgrammerError) {
    const auto bogus = static_cast<TK_CalendarType>(3);
    EXPECT_THROW((void)caseName(bogus), std::out_of_range);
    EXPECT_THROW((void)toStored(bogus), std::out_of_range);
}

TEST(Identifiers, FixedIdentifiersExtendTheirPrefixes) {
    using namespace identifiers;
    EXPECT_EQ(std::string(kFilterPrefix) + "Subtask", kSubtaskFilter);
    EXPECT_EQ(std::string(kTaskActionPrefix) + "Delete", kTaskActionDelete);
    EXPECT_EQ(std::string(kTaskActionPrefix) + "Remove.From.Section", kTaskActionRemoveFromSection);
    for (auto prefix : {kFilterPrefix, kTaskActionPrefix, kUnknownObjectPrefix})
        EXPECT_TRUE(prefix.starts_with(kRoot)) << prefix;
    EXPECT_EQ(kUnknownObjectPrefix, "Lumenforge.QRX.Tasket.Unknown.Object.");
}
