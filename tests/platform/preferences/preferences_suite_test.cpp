// The contract every preferences adapter keeps, run against each of them.
#include "platform/preferences/file_preferences_suite.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <memory>

using namespace tasket::platform;

namespace {

struct Adapter {
    const char* name;
    std::function<std::shared_ptr<PreferencesSuite>(const std::filesystem::path& dir)> make;
};

const Adapter kAdapters[] = {
    {"InMemory",
     [](const std::filesystem::path&) {
         return std::make_shared<InMemoryPreferencesSuite>("suite");
     }},
    {"File",
     [](const std::filesystem::path& dir) {
         return std::make_shared<FilePreferencesSuite>(dir, "suite");
     }},
};

class PreferencesContract : public ::testing::TestWithParam<Adapter> {
  protected:
    tasket::testing::TempDir m_dir;
    std::shared_ptr<PreferencesSuite> m_suite = GetParam().make(m_dir.path());
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Adapters, PreferencesContract, ::testing::ValuesIn(kAdapters),
                         [](const auto& adapter) { return std::string(adapter.param.name); });

TEST_P(PreferencesContract, StoresEachTypeReadsItOnlyAsThatTypeReplacesAndRemoves) {
    ASSERT_TRUE(m_suite->isAvailable());
    const PreferenceDictionary values{{"b", true},
                                      {"i", 42},
                                      {"d", 2.5},
                                      {"s", "text"},
                                      {"t", Date{10.0}},
                                      {"data", PreferenceData{1, 2}},
                                      {"list", PreferenceStringList{"x", "y"}},
                                      {"dict", PreferenceDictionary{{"k", "v"}}}};
    for (const auto& [key, value] : values)
        ASSERT_TRUE(m_suite->setValue(key, value));
    EXPECT_EQ(m_suite->dictionaryRepresentation(), values);
    EXPECT_EQ(m_suite->boolValue("b"), true);
    EXPECT_EQ(m_suite->integerValue("i"), 42);
    EXPECT_EQ(m_suite->doubleValue("d"), 2.5);
    EXPECT_EQ(m_suite->dateValue("t"), Date{10.0});
    EXPECT_EQ(m_suite->dataValue("data"), (PreferenceData{1, 2}));
    EXPECT_EQ(m_suite->dictionaryValue("dict"), (PreferenceDictionary{{"k", "v"}}));
    // No conversions: a string is not a boolean, an integer is not a double.
    EXPECT_FALSE(m_suite->boolValue("s"));
    EXPECT_FALSE(m_suite->doubleValue("i"));
    EXPECT_FALSE(m_suite->integerValue("d"));
    EXPECT_FALSE(m_suite->boolValue("missing"));

    // Set replaces, whatever the type; remove forgets, even what was never there.
    ASSERT_TRUE(m_suite->setValue("i", "now a string"));
    EXPECT_EQ(m_suite->stringValue("i"), "now a string");
    ASSERT_TRUE(m_suite->removeValue("i"));
    EXPECT_FALSE(m_suite->value("i"));
    EXPECT_TRUE(m_suite->removeValue("never.there"));
}

TEST_P(PreferencesContract, RefusesValuesItCouldNotStoreAndWritesNothing) {
    ASSERT_TRUE(m_suite->setValue("kept", 1));
    const PreferenceValue refused[] = {
        std::nan(""),
        HUGE_VAL,
        Date{INFINITY},
        "\xc3\x28", // broken UTF-8
        PreferenceStringList{"ok", "\xff"},
        PreferenceDictionary{{"\xfe", 1}},
        PreferenceDictionary{{"ok", std::nan("")}},
    };
    for (const auto& value : refused) {
        auto result = m_suite->setValue("bad", value);
        ASSERT_FALSE(result) << value.typeName();
        EXPECT_EQ(result.error().code, Errc::invalidArgument);
    }
    EXPECT_FALSE(m_suite->setValue("", 1));
    EXPECT_FALSE(m_suite->setValue("\xff", 1));
    auto viaUpdate = m_suite->update([](PreferenceDictionary& values) {
        values["kept"] = 2;
        values["bad"] = std::nan("");
    });
    EXPECT_FALSE(viaUpdate);
    EXPECT_EQ(m_suite->dictionaryRepresentation(), (PreferenceDictionary{{"kept", 1}}));
    // A valid update applies all its changes at once.
    ASSERT_TRUE(m_suite->update([](PreferenceDictionary& values) {
        values["b"] = values.at("kept");
        values.erase("kept");
        values["c"] = true;
    }));
    EXPECT_EQ(m_suite->dictionaryRepresentation(), (PreferenceDictionary{{"b", 1}, {"c", true}}));
}

// Unavailability for the in-memory adapter is switched; for the file adapter
// it is a directory that cannot exist (its parent is a regular file).
TEST(PreferencesUnavailable, ReadsFindNothingAndWritesFail) {
    tasket::testing::TempDir dir;
    { std::ofstream(dir / "file") << "x"; }
    auto memory = std::make_shared<InMemoryPreferencesSuite>("m", PreferenceDictionary{{"k", 1}});
    memory->setAvailable(false);
    const std::shared_ptr<PreferencesSuite> suites[] = {
        memory,
        std::make_shared<FilePreferencesSuite>(dir / "file" / "sub", "f"),
        std::make_shared<FilePreferencesSuite>(dir.path(), "../escape"),
    };
    for (const auto& suite : suites) {
        SCOPED_TRACE(suite->name());
        EXPECT_FALSE(suite->isAvailable());
        EXPECT_FALSE(suite->value("k"));
        EXPECT_TRUE(suite->dictionaryRepresentation().empty());
        auto written = suite->setValue("k", 2);
        ASSERT_FALSE(written);
        EXPECT_EQ(written.error().code, Errc::unavailable);
    }
    memory->setAvailable(true);
    EXPECT_EQ(memory->integerValue("k"), 1);
}
