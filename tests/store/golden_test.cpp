// The texts and codes the main application shares with us, against one
// golden table (tests/data/shared_texts.tsv): every enumeration's storage
// and cases in code order, the titles and identifiers it quotes, the
// entities with their attribute and relationship names, the store's file,
// folder and context names, and the sort settings' keys as the fetch
// manager reads them. A rename, a reordered case or a misspelt key shows
// as one differing row.
#include "platform/main_queue.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "rules/enumerations.h"
#include "rules/identifiers.h"
#include "settings/settings_keys.h"
#include "store/application_group.h"
#include "store/local_data_fetch_manager.h"
#include "store/tk_data_model.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>

using namespace tasket;
using Row = std::pair<std::string, std::string>; // "kind name" -> value

namespace {

std::map<std::string, std::string> goldenRows() {
    std::map<std::string, std::string> rows;
    std::ifstream in(TASKET_GOLDEN_TABLE);
    EXPECT_TRUE(in) << TASKET_GOLDEN_TABLE;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line.starts_with('#'))
            continue;
        const auto first = line.find('\t');
        const auto second = line.find('\t', first + 1);
        EXPECT_TRUE(
            rows.emplace(line.substr(0, first) + " " + line.substr(first + 1, second - first - 1),
                         line.substr(second + 1))
                .second)
            << line;
    }
    return rows;
}

template <class Names> std::string joined(const Names& names) {
    std::string out;
    for (const auto& name : names)
        out += (out.empty() ? "" : ",") + std::string(name);
    return out;
}

// What the code says, in the table's form.
std::map<std::string, std::string> codeRows() {
    std::map<std::string, std::string> rows;
    rules::AllEnumerations::forEach([&]<class E>() {
        std::vector<std::string_view> names;
        for (const auto& c : rules::caseTable<E>())
            names.push_back(c.name);
        rows["enum " + std::string(rules::typeName<E>())] =
            std::string(rules::NameStoredEnum<E> ? "name " : "code ") + joined(names);
    });
    using namespace rules;
    const std::pair<const char*, std::string_view> titles[] = {
        {"TK_TasksBoardType.notCompletedCompleted",
         displayTitle(TK_TasksBoardType::notCompletedCompleted)},
        {"TK_TasksBoardType.categories", displayTitle(TK_TasksBoardType::categories)},
        {"TK_TasksBoardType.values", displayTitle(TK_TasksBoardType::values)},
        {"TK_Color.verySoftOrange", displayTitle(TK_Color::verySoftOrange)},
        {"TK_ReminderInterruptionLevel", kReminderInterruptionLevelLabel},
    };
    for (const auto& [name, title] : titles)
        rows["title " + std::string(name)] = title;
    namespace id = identifiers;
    for (const auto& [name, text] : std::initializer_list<std::pair<const char*, std::string_view>>{
             {"root", id::kRoot},
             {"filterPrefix", id::kFilterPrefix},
             {"subtaskFilter", id::kSubtaskFilter},
             {"taskActionPrefix", id::kTaskActionPrefix},
             {"taskActionRemoveFromSection", id::kTaskActionRemoveFromSection},
             {"taskActionDelete", id::kTaskActionDelete},
             {"unknownObjectPrefix", id::kUnknownObjectPrefix}})
        rows["identifier " + std::string(name)] = text;
    std::vector<std::string> entities;
    for (const auto& entity : store::tkDataModel()->entities()) {
        entities.push_back(entity.name);
        std::vector<std::string> attributes, relationships;
        for (const auto& a : entity.attributes)
            attributes.push_back(a.name);
        for (const auto& r : entity.relationships)
            relationships.push_back(r.name);
        rows["attributes " + entity.name] = joined(attributes);
        rows["relationships " + entity.name] = joined(relationships);
    }
    rows["store entities"] = joined(entities);
    rows["store model"] = store::kModelName;
    rows["store file"] = store::kStoreFileName;
    rows["store group"] = store::kApplicationGroup;
    rows["store viewContext"] = store::kViewContextName;
    rows["store loadFailurePrefix"] = store::kStoreLoadFailurePrefix;
    rows["settings appGroupSuite"] = settings::keys::kAppGroupSuite;
    rows["settings standardSuite"] = settings::keys::kStandardSuite;
    return rows;
}

} // namespace

TEST(Golden, TheSharedTextsAndCodesAreKeptByteForByte) {
    const auto golden = goldenRows();
    auto actual = codeRows();
    for (const auto& [key, value] : golden) {
        if (key.starts_with("sortKey "))
            continue; // read through the fetch manager below
        const auto found = actual.find(key);
        if (found == actual.end()) {
            ADD_FAILURE() << "the code has no " << key;
            continue;
        }
        EXPECT_EQ(found->second, value) << key;
        actual.erase(found);
    }
    for (const auto& [key, value] : actual)
        ADD_FAILURE() << "the golden table lacks " << key << "\t" << value;
}

// The sort settings are read from the keys the main application writes:
// a non-default pair stored under one kind's golden key texts is read by
// that kind alone, every other kind reading the defaults.
TEST(Golden, TheSortSettingsAreReadFromTheSharedKeys) {
    using Kind = store::CollectionKind;
    const std::vector<std::string> names = {"folders",    "smartCategories", "categories",
                                            "tags",       "priorities",      "statuses",
                                            "attributes", "values"};
    const auto golden = goldenRows();
    for (std::size_t i = 0; i < names.size(); ++i) {
        SCOPED_TRACE(names[i]);
        const std::string& keys = golden.at("sortKey " + names[i]);
        const auto bar = keys.find('|');
        auto group = std::make_shared<platform::InMemoryPreferencesSuite>(
            std::string(settings::keys::kAppGroupSuite));
        ASSERT_TRUE(group->setValue(keys.substr(0, bar), std::int64_t{0}));  // alphabetical
        ASSERT_TRUE(group->setValue(keys.substr(bar + 1), std::int64_t{1})); // descending
        tasket::testing::TempDir dir;
        auto manager = store::LocalDataFetchManager::make(
            store::LocalDataManager::make(dir.path()),
            std::make_shared<settings::CustomizationManager>(
                group, std::make_shared<platform::InMemoryPreferencesSuite>(
                           std::string(settings::keys::kStandardSuite))),
            std::make_shared<settings::FocusManager>());
        ASSERT_TRUE(manager) << manager.error().message;
        for (std::size_t k = 0; k < names.size(); ++k) {
            const Kind kind = static_cast<Kind>(k);
            EXPECT_EQ((*manager)->sortOrder(kind).value(),
                      k == i ? rules::TK_ObjectsSortOrder::alphabetical
                             : store::kDefaultObjectsSortOrder)
                << names[k];
            EXPECT_EQ((*manager)->sortOrderDirection(kind).value(),
                      k == i ? rules::TK_ObjectsSortOrderDirection::descending
                             : store::kDefaultObjectsSortOrderDirection)
                << names[k];
        }
        platform::MainQueue::shared().pump();
    }
}
