#include "platform/base64.h"
#include "platform/preferences/detail/preferences_document.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace tasket::platform;
using namespace tasket::platform::detail;

TEST(PreferencesDocument, EveryValueTypeRoundTripsWithItsType) {
    PreferenceDictionary nested{{"inner", PreferenceValue(PreferenceStringList{"x"})},
                                {"deeper", PreferenceDictionary{{"n", 3}}}};
    const PreferenceDictionary values{
        {"bool.true", true},
        {"bool.false", false},
        {"int.zero", 0},
        {"int.min", std::numeric_limits<std::int64_t>::min()},
        {"int.max", std::numeric_limits<std::int64_t>::max()},
        {"double.whole", 1.0}, // must stay a double, not become the integer 1
        {"double.negative.zero", -0.0},
        {"double.tiny", 5e-324},
        {"double.huge", 1.7976931348623157e308},
        {"double.third", 1.0 / 3.0},
        {"string.empty", ""},
        {"string.escapes", "quote\" backslash\\ newline\n tab\t bell\x07 nul-free"},
        {"string.unicode", "Não Concluído ✓ 😀"},
        {"date", Date{-12.5}},
        {"date.whole", Date{700000000.0}},
        {"data.empty", PreferenceData{}},
        {"data.bytes", PreferenceData{0, 1, 2, 253, 254, 255, 10}},
        {"list.empty", PreferenceStringList{}},
        {"list", PreferenceStringList{"a", "", "c\"d"}},
        {"dictionary.empty", PreferenceDictionary{}},
        {"dictionary", nested},
        {"", "empty key inside a document is still text"},
    };
    const std::string text = writePreferencesDocument(values);
    auto parsed = parsePreferencesDocument(text);
    ASSERT_TRUE(parsed) << parsed.error().message << "\n" << text;
    EXPECT_EQ(*parsed, values) << text;
    EXPECT_TRUE(parsed->at("double.whole").holds<double>());
    EXPECT_TRUE(std::signbit(std::get<double>(parsed->at("double.negative.zero").storage())));
    // Writing again gives the same bytes: the form is canonical.
    EXPECT_EQ(writePreferencesDocument(*parsed), text);
}

TEST(PreferencesDocument, TextThatIsNotASuiteDocumentIsRejected) {
    const char* documents[] = {
        "",
        "{",
        "[1, 2]",
        R"({"a": null})",
        R"({"a": {"b": 1}})",                // object without a type tag
        R"({"a": {"date": 1, "data": ""}})", // two tags
        R"({"a": {"date": "yesterday"}})",   // tag with the wrong content
        R"({"a": {"data": "not base64!"}})",
        R"({"a": {"data": "QQ="}})", // bad padding
        R"({"a": {"dictionary": [1]}})",
        R"({"a": ["text", 1]})",          // lists hold text only
        R"({"a": 18446744073709551615})", // beyond a signed 64-bit integer
        R"({"a": 1, "a": 2})",            // a key twice
        "{\"a\": \"\xff\xfe\"}",          // not UTF-8
    };
    for (const char* document : documents) {
        auto parsed = parsePreferencesDocument(document);
        ASSERT_FALSE(parsed) << document;
        EXPECT_EQ(parsed.error().code, Errc::parseError);
    }
}

TEST(Base64, EncodesAndDecodesEveryTailLength) {
    const std::pair<PreferenceData, const char*> cases[] = {
        {{}, ""},
        {{'f'}, "Zg=="},
        {{'f', 'o'}, "Zm8="},
        {{'f', 'o', 'o'}, "Zm9v"},
        {{'f', 'o', 'o', 'b'}, "Zm9vYg=="},
        {{0xFF, 0xEF, 0xBE}, "/+++"},
    };
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(encodeBase64(bytes), text);
        EXPECT_EQ(decodeBase64(text), bytes) << text;
    }
    for (const char* bad : {"Zg=", "Zg", "Z===", "Zh==", "Zm9=Zm9v", "Zm9v\n"})
        EXPECT_FALSE(decodeBase64(bad)) << bad;
}
