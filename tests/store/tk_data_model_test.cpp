#include "store/records.h"
#include "store/tk_data_model.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using namespace tasket::objectstore;
using tasket::store::describeTkDataModel;
using tasket::store::tkDataModel;

namespace {

// ---- The fields as the record tables list them ------------------------------------

std::vector<std::string> words(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

const std::string kScheduleFields =
    "scheduleStartDateReminderAction:Int16 scheduleStartDateReminderActionType:Int16 "
    "scheduleStartDateReminderActionDate:Date scheduleStartDateReminderActionTime:Date "
    "scheduleStartDateReminderActionIsAllDay:Bool scheduleStartDateReminderActionTimePeriod:Int16 "
    "scheduleStartDateReminderActionTimePeriodAmount:Double "
    "scheduleDueDateReminderAction:Int16 scheduleDueDateReminderActionType:Int16 "
    "scheduleDueDateReminderActionDate:Date scheduleDueDateReminderActionTime:Date "
    "scheduleDueDateReminderActionIsAllDay:Bool scheduleDueDateReminderActionTimePeriod:Int16 "
    "scheduleDueDateReminderActionTimePeriodAmount:Double ";

const std::string kTaskListBlock =
    "title:String notes:String color:String icon:String whenCreated:Date sortIndex:Int16 "
    "isArchived:Bool isSample:Bool isShared:Bool shareRole:Int16 numberOfModifications:Int16 "
    "viewType:Int16 viewAppearance:Int16 boardType:Int16 boardSectionWidth:Double "
    "tasksFilter:Int16 "
    "tasksSortOrder:Int16 tasksSortOrderDirection:Int16 isShowingCompletedTasks:Bool "
    "markAsDoneAction:Int16 " +
    kScheduleFields;

// In the model's order for the task; the others in the order the tables give.
const std::map<std::string, std::string> kAttributes = {
    {"TK_Task",
     "attachments:Binary attachmentsFilter:Int16 attachmentsSortOrder:Int16 "
     "attachmentsSortOrderDirection:Int16 attachmentsViewType:Int16 calendarItemIdentifier:String "
     "calendarType:Int16 categorySortIndex:Int16 color:String doesRemindRepeat:Bool dueDate:Date "
     "dueDateAndTime:Date dueTime:Date isAllDay:Bool isArchived:Bool isCompleted:Bool "
     "isExpanded:Bool isIgnoringListActions:Bool isPinned:Bool isRecurringSinceLastCompletion:Bool "
     "isRemindEnabled:Bool isSample:Bool isShared:Bool isStartDateAllDay:Bool "
     "isStartDateRemindEnabled:Bool note:String numberOfModifications:Int16 "
     "prioritySortIndex:Int16 reminderInterruptionLevel:Int16 repeatFrequency:Double "
     "repeatIntervalType:Int16 sectionSortIndex:Int16 shareRole:Int16 smartCategorySortIndex:Int16 "
     "startDate:Date startDateAndTime:Date startDateReminderInterruptionLevel:Int16 startTime:Date "
     "statusSortIndex:Int16 tagSortIndex:Int16 taskID:String title:String url:String "
     "valueSortIndex:Int16 whenCreated:Date"},
    {"TK_Subtask",
     "attachments:Binary attachmentsFilter:Int16 attachmentsSortOrder:Int16 "
     "attachmentsSortOrderDirection:Int16 attachmentsViewType:Int16 color:String "
     "doesRemindRepeat:Bool dueDate:Date dueDateAndTime:Date dueTime:Date isAllDay:Bool "
     "isArchived:Bool isCompleted:Bool isIgnoringListActions:Bool isPinned:Bool "
     "isRecurringSinceLastCompletion:Bool isRemindEnabled:Bool isSample:Bool isShared:Bool "
     "isStartDateAllDay:Bool isStartDateRemindEnabled:Bool note:String numberOfModifications:Int16 "
     "reminderInterruptionLevel:Int16 repeatFrequency:Double repeatIntervalType:Int16 "
     "shareRole:Int16 startDate:Date startDateAndTime:Date "
     "startDateReminderInterruptionLevel:Int16 "
     "startTime:Date title:String url:String whenCreated:Date sortIndex:Int16 subtaskID:String"},
    {"TK_Category", kTaskListBlock +
                        "categoryID:String calendarType:Int16 calendarIdentifier:String "
                        "calendarSourceIdentifier:String"},
    {"TK_Tag", kTaskListBlock + "tagID:String calendarType:Int16 sharedCategoryIdentifier:String"},
    {"TK_Priority", kTaskListBlock +
                        "priorityID:String calendarType:Int16 remindersPriorityIndex:Int16 "
                        "sharedCategoryIdentifier:String"},
    {"TK_Status", kTaskListBlock + "statusID:String sharedCategoryIdentifier:String"},
    {"TK_AttributeValue", kTaskListBlock + "identifier:UUID"},
    {"TK_Folder", "identifier:String title:String notes:String color:String icon:String "
                  "creationDate:Date sortIndex:Int16 isArchived:Bool isSample:Bool "
                  "numberOfModifications:Int16 viewType:Int16 viewAppearance:Int16"},
    {"TK_Attribute", "identifier:UUID title:String notes:String color:String icon:String "
                     "whenCreated:Date sortIndex:Int16 isExpanded:Bool isHidden:Bool isSample:Bool "
                     "isShared:Bool shareRole:Int16 numberOfModifications:Int16 "
                     "sharedCategoryIdentifier:String"},
    {"TK_BoardSection", "identifier:String title:String notes:String color:String icon:String "
                        "creationDate:Date sortIndex:Int16 isRemovingFromOtherSections:Bool "
                        "isSample:Bool isShared:Bool shareRole:Int16 numberOfModifications:Int16 "
                        "markAsDoneAction:Int16 " +
                            kScheduleFields},
    {"TK_SmartCategory",
     "identifier:String title:String notes:String color:String icon:String creationDate:Date "
     "sortIndex:Int16 isArchived:Bool isSample:Bool isShared:Bool isShowingCompletedTasks:Bool "
     "shareRole:Int16 numberOfModifications:Int16 sharedCategoryIdentifier:String viewType:Int16 "
     "viewAppearance:Int16 boardType:Int16 boardSectionWidth:Double tasksSortOrder:Int16 "
     "tasksSortOrderDirection:Int16 isFilter:Bool completedFilter:Int16 notesFilter:Int16 "
     "urlFilter:Int16 categoryFilter:Int16 subtaskFilter:Int16 tagFilter:Int16 "
     "priorityFilter:Int16 statusFilter:Int16 valueFilter:Int16 pinFilter:Int16 "
     "attachmentsFilter:Int16 startDateFilter:Int16 reminderFilter:Int16 "
     "startDateRelativeDate:Int16 reminderRelativeDate:Int16 startDateFromDate:Date "
     "startDateToDate:Date reminderFromDate:Date reminderToDate:Date"},
    {"TK_Attachment",
     "identifier:String title:String type:Int16 content:Binary fileExtension:String "
     "creationDate:Date sortIndex:Int16 isPreviousAttachment:Bool isShared:Bool "
     "shareRole:Int16 numberOfModifications:Int16"},
};

std::vector<std::string> modelAttributes(const EntityDescription& e) {
    std::vector<std::string> out;
    for (const auto& a : e.attributes)
        out.push_back(a.name + ":" + std::string(toString(a.type)));
    return out;
}

// ---- Relationships as the tables pair them --------------------------------------------

struct Side {
    std::string entity, name, destination, inverse;
    bool toMany;
    auto operator<=>(const Side&) const = default;
};

// "TK_Task.tags*" : entity, name, to-many when starred.
Side side(const std::string& end, const std::string& other) {
    auto parse = [](std::string text, std::string& entity, std::string& name, bool& many) {
        many = text.ends_with('*');
        if (many)
            text.pop_back();
        const auto dot = text.find('.');
        entity = text.substr(0, dot);
        name = text.substr(dot + 1);
    };
    Side s{};
    std::string otherName;
    bool otherMany = false;
    parse(end, s.entity, s.name, s.toMany);
    parse(other, s.destination, otherName, otherMany);
    s.inverse = otherName;
    return s;
}

const std::vector<std::pair<std::string, std::string>> kMemberships = {
    {"TK_Task.attachmentsArray*", "TK_Attachment.task"},
    {"TK_Task.boardSections*", "TK_BoardSection.tasks*"},
    {"TK_Task.category", "TK_Category.tasks*"},
    {"TK_Task.customPriority", "TK_Priority.tasks*"},
    {"TK_Task.customStatus", "TK_Status.tasks*"},
    {"TK_Task.subtasks*", "TK_Subtask.task"},
    {"TK_Task.tags*", "TK_Tag.tasks*"},
    {"TK_Task.values*", "TK_AttributeValue.tasks*"},
    {"TK_Subtask.attachmentsArray*", "TK_Attachment.subtask"},
    {"TK_Subtask.customPriority", "TK_Priority.subtasks*"},
    {"TK_Subtask.customStatus", "TK_Status.subtasks*"},
    {"TK_Subtask.tags*", "TK_Tag.subtasks*"},
    {"TK_Subtask.values*", "TK_AttributeValue.subtasks*"},
    {"TK_Category.boardSections*", "TK_BoardSection.category"},
    {"TK_Category.folders*", "TK_Folder.categories*"},
    {"TK_Category.smartCategories*", "TK_SmartCategory.categories*"},
    {"TK_Category.filters*", "TK_SmartCategory.filterCategories*"},
    {"TK_Tag.boardSections*", "TK_BoardSection.tag"},
    {"TK_Tag.folders*", "TK_Folder.tags*"},
    {"TK_Tag.smartCategories*", "TK_SmartCategory.tags*"},
    {"TK_Tag.filters*", "TK_SmartCategory.filterTags*"},
    {"TK_Priority.boardSections*", "TK_BoardSection.priority"},
    {"TK_Priority.folders*", "TK_Folder.priorities*"},
    {"TK_Priority.smartCategories*", "TK_SmartCategory.priorities*"},
    {"TK_Priority.filters*", "TK_SmartCategory.filterPriorities*"},
    {"TK_Status.boardSections*", "TK_BoardSection.status"},
    {"TK_Status.folders*", "TK_Folder.statuses*"},
    {"TK_Status.smartCategories*", "TK_SmartCategory.statuses*"},
    {"TK_Status.filters*", "TK_SmartCategory.filterStatuses*"},
    {"TK_AttributeValue.boardSections*", "TK_BoardSection.value"},
    {"TK_AttributeValue.smartCategories*", "TK_SmartCategory.values*"},
    {"TK_AttributeValue.filters*", "TK_SmartCategory.filterValues*"},
    {"TK_AttributeValue.attribute", "TK_Attribute.values*"},
    {"TK_Attribute.folders*", "TK_Folder.attributes*"},
    {"TK_Folder.smartCategories*", "TK_SmartCategory.folders*"},
    {"TK_SmartCategory.boardSections*", "TK_BoardSection.smartCategory"},
};

// Every list action of every owner kind with its partner, built from the
// naming rule: the owner's kind followed by the forward name.
std::vector<std::pair<std::string, std::string>> listActions() {
    const std::vector<std::pair<std::string, std::string>> owners = {
        {"category", "TK_Category"},    {"tag", "TK_Tag"},
        {"priority", "TK_Priority"},    {"status", "TK_Status"},
        {"value", "TK_AttributeValue"}, {"section", "TK_BoardSection"}};
    struct Forward {
        std::string name, destination;
        bool toMany;
    };
    const std::vector<Forward> forwards = {
        {"addTasksToTags", "TK_Tag", true},
        {"addTasksToSections", "TK_BoardSection", true},
        {"addTasksToValues", "TK_AttributeValue", true},
        {"addTasksToPriority", "TK_Priority", false},
        {"addTasksToStatus", "TK_Status", false},
        {"removeTasksFromTags", "TK_Tag", true},
        {"removeTasksFromSections", "TK_BoardSection", true},
        {"removeTasksFromValues", "TK_AttributeValue", true},
        {"removeTasksFromPriorities", "TK_Priority", true},
        {"removeTasksFromStatuses", "TK_Status", true},
    };
    std::vector<std::pair<std::string, std::string>> out;
    for (const auto& [kind, owner] : owners) {
        for (const auto& f : forwards) {
            if (owner == f.destination && (owner == "TK_Priority" || owner == "TK_Status"))
                continue;
            std::string partner = kind + char(std::toupper(f.name[0])) + f.name.substr(1);
            if (partner == "sectionRemoveTasksFromStatuses")
                partner = "sectionRemoveTasksFromStatus";
            out.emplace_back(owner + "." + f.name + (f.toMany ? "*" : ""),
                             f.destination + "." + partner + "*");
        }
    }
    return out;
}

std::set<Side> expectedSides() {
    std::set<Side> out;
    auto all = kMemberships;
    for (auto& pair : listActions())
        all.push_back(pair);
    for (const auto& [a, b] : all) {
        out.insert(side(a, b));
        out.insert(side(b, a));
    }
    return out;
}

std::set<Side> modelSides(const Model& model) {
    std::set<Side> out;
    for (const auto& e : model.entities())
        for (const auto& r : e.relationships)
            out.insert({e.name, r.name, r.destination, r.inverse, r.toMany});
    return out;
}

// A copy of `model` whose relationship `ri` of entity `ei` names `inverse`.
Model withInverse(const Model& model, std::size_t ei, std::size_t ri, const std::string& inverse) {
    Model out(model.name(), model.version());
    for (std::size_t i = 0; i < model.entities().size(); ++i) {
        auto& e = out.addEntity(model.entities()[i].name);
        e = model.entities()[i];
        if (i == ei)
            e.relationships[ri].inverse = inverse;
    }
    return out;
}

std::string describe(const Side& s) {
    return s.entity + "." + s.name + (s.toMany ? "* -> " : " -> ") + s.destination + "." +
           s.inverse;
}

} // namespace

TEST(TkDataModel, HasTwelveEntitiesWithEveryAttributeAndItsType) {
    const Model& model = *tkDataModel();
    EXPECT_EQ(model.name(), "TK_Data");
    std::vector<std::string> names;
    for (const auto& e : model.entities())
        names.push_back(e.name);
    EXPECT_EQ(names, words("TK_Task TK_Subtask TK_Category TK_Folder TK_SmartCategory TK_Tag "
                           "TK_Priority TK_Status TK_Attribute TK_AttributeValue TK_BoardSection "
                           "TK_Attachment"));
    for (const auto& [entity, listed] : kAttributes) {
        SCOPED_TRACE(entity);
        const auto* e = model.entity(entity);
        ASSERT_NE(e, nullptr);
        auto expected = words(listed);
        auto actual = modelAttributes(*e);
        if (entity == "TK_Task") {
            EXPECT_EQ(actual, expected); // the order is the model's
        }
        std::sort(expected.begin(), expected.end());
        std::sort(actual.begin(), actual.end());
        EXPECT_EQ(actual, expected);
    }
}

TEST(TkDataModel, KeepsPropertiesInTheByteOrderOfTheirNames) {
    for (const auto& e : tkDataModel()->entities()) {
        SCOPED_TRACE(e.name);
        EXPECT_TRUE(std::is_sorted(e.attributes.begin(), e.attributes.end(),
                                   [](const auto& a, const auto& b) { return a.name < b.name; }));
        EXPECT_TRUE(std::is_sorted(e.relationships.begin(), e.relationships.end(),
                                   [](const auto& a, const auto& b) { return a.name < b.name; }));
    }
}

TEST(TkDataModel, PairsEveryRelationshipAsTheRecordTablesName) {
    const auto expected = expectedSides();
    const auto actual = modelSides(*tkDataModel());
    for (const auto& s : expected)
        EXPECT_TRUE(actual.contains(s)) << "missing " << describe(s);
    for (const auto& s : actual)
        EXPECT_TRUE(expected.contains(s)) << "unexpected " << describe(s);
    EXPECT_EQ(actual.size(), 184u);
}

TEST(TkDataModel, ValidationRejectsEveryRelationshipThatDoesNotPair) {
    const Model described = describeTkDataModel();
    int checked = 0;
    for (std::size_t ei = 0; ei < described.entities().size(); ++ei) {
        for (std::size_t ri = 0; ri < described.entities()[ei].relationships.size(); ++ri) {
            const auto& r = described.entities()[ei].relationships[ri];
            const auto* destination = described.entity(r.destination);
            // A partner that does not exist, and one that exists but names
            // another relationship as its own partner.
            std::vector<std::string> wrong = {r.inverse + "X"};
            for (const auto& other : destination->relationships)
                if (other.name != r.inverse) {
                    wrong.push_back(other.name);
                    break;
                }
            for (const auto& inverse : wrong) {
                Model broken = withInverse(described, ei, ri, inverse);
                auto finalized = broken.finalize();
                ASSERT_FALSE(finalized) << r.name << " -> " << inverse;
                EXPECT_NE(finalized.error().message.find(r.destination), std::string::npos);
                ++checked;
            }
        }
    }
    EXPECT_EQ(checked, 2 * 184);
    Model intact = described;
    EXPECT_TRUE(intact.finalize());
}

// The compile-time property indexes the accessors use are the engine's.
TEST(TkDataModel, RecordPropertyIndexesAreTheEngines) {
    using tasket::store::detail::Schema;
#define TK_TEST_INDEX(C, kind, name, ...)                                                          \
    EXPECT_EQ(tkDataModel()->entity(#C)->propertyIndex(#name), Schema<C>::Property::name)          \
        << #C "." #name;
#define TK_TEST_ENTITY(C) TK_DATA_##C(TK_TEST_INDEX, C)
    using namespace tasket::store;
    TK_DATA_ENTITIES(TK_TEST_ENTITY)
#undef TK_TEST_ENTITY
#undef TK_TEST_INDEX
}
