#include "platform/json_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <vector>

using tasket::platform::JsonWriter;
using Form = JsonWriter::Form;
using namespace std::string_view_literals;

namespace {

// One document in each form: members in the order given, data as Base64,
// and in the record form "/" escaped, in keys as in values.
TEST(JsonWriter, WritesOneDocumentInEachForm) {
    const std::vector<std::uint8_t> png = {0x89, 'P', 'N', 'G', 0xff};
    // clang-format off
    const auto write = [&](Form form) {
        return JsonWriter(form).beginObject()
            .key("zeta/z").string("Caf\xc3\xa9")
            .key("count").integer(-3)
            .key("done").boolean(false)
            .key("link").null()
            .key("tags").beginArray().data(png).number(0.25).beginObject().endObject().endArray()
            .key("empty").beginArray().endArray()
            .key("none").data({})
            .endObject().finish().value();
    };
    // clang-format on
    EXPECT_EQ(write(Form::compact),
              "{\"zeta/z\":\"Caf\xc3\xa9\",\"count\":-3,\"done\":false,"
              R"("link":null,"tags":["iVBOR/8=",0.25,{}],"empty":[],"none":""})");
    EXPECT_EQ(write(Form::record),
              "{\"zeta\\/z\":\"Caf\xc3\xa9\",\"count\":-3,\"done\":false,"
              R"("link":null,"tags":["iVBOR\/8=",0.25,{}],"empty":[],"none":""})");
    EXPECT_EQ(write(Form::pretty), "{\n  \"zeta/z\": \"Caf\xc3\xa9\",\n"
                                   R"(  "count": -3,
  "done": false,
  "link": null,
  "tags": [
    "iVBOR/8=",
    0.25,
    {}
  ],
  "empty": [],
  "none": ""
}
)");
    // Nested one level: each line after the first two spaces further in.
    EXPECT_EQ(JsonWriter::nested(1)
                  .beginObject()
                  .key("a")
                  .beginArray()
                  .integer(1)
                  .endArray()
                  .endObject()
                  .finish()
                  .value(),
              "{\n    \"a\": [\n      1\n    ]\n  }\n");
}

TEST(JsonWriter, EscapesStringsAndKeepsAnyUnicode) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"say \"hi\"\\", R"("say \"hi\"\\")"},
        {"line\nbreak\ttab\r\b\f", R"("line\nbreak\ttab\r\b\f")"},
        {"nul\0byte\x1f"sv, R"("nul\u0000byte\u001f")"},
        {"\xf0\x9f\x98\x80 \xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d \xe2\x80\x8f",
         "\"\xf0\x9f\x98\x80 \xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d \xe2\x80\x8f\""},
        {"bad \xff byte, cut \xe2\x9c", "\"bad \xef\xbf\xbd byte, cut \xef\xbf\xbd\xef\xbf\xbd\""},
        {"surrogate \xed\xa0\x80", "\"surrogate \xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\""},
    };
    for (const auto& [text, json] : cases) {
        SCOPED_TRACE(json);
        EXPECT_EQ(JsonWriter(Form::compact).string(text).finish(), json);
    }
}

TEST(JsonWriter, WritesNumbersInTheirShortestRoundTripForm) {
    const std::pair<double, std::string_view> cases[] = {
        {0.1, "0.1"},
        {-2.5e-8, "-2.5e-08"},
        {786297600.0, "786297600"}, // an integral date: no ".0"
        {786297600.25, "786297600.25"},
        {-0.0, "-0"},
        {1e21, "1e+21"},
        {0.1 + 0.2, "0.30000000000000004"},
        {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
    };
    for (const auto& [value, json] : cases) {
        SCOPED_TRACE(json);
        EXPECT_EQ(JsonWriter(Form::record).number(value).finish(), json);
    }
    EXPECT_EQ(JsonWriter(Form::compact).integer(std::numeric_limits<std::int64_t>::min()).finish(),
              "-9223372036854775808");
}

TEST(JsonWriter, ANonFiniteNumberIsNullForPeopleAndFailsARecord) {
    using Limits = std::numeric_limits<double>;
    for (const double value : {Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity()}) {
        SCOPED_TRACE(value);
        const auto write = [value](Form form) {
            return JsonWriter(form)
                .beginObject()
                .key("due")
                .number(value)
                .key("n")
                .null()
                .endObject()
                .finish();
        };
        EXPECT_EQ(write(Form::compact), R"({"due":null,"n":null})");
        const auto record = write(Form::record);
        ASSERT_FALSE(record);
        EXPECT_EQ(record.error().code, tasket::platform::Errc::invalidArgument);
        EXPECT_THAT(record.error().message, ::testing::HasSubstr("\"due\""));
    }
}

TEST(JsonWriter, RefusesMisuse) {
    const std::pair<std::string_view, std::function<void(JsonWriter&)>> cases[] = {
        {"value without key", [](JsonWriter& w) { w.beginObject().string("x"); }},
        {"key in array", [](JsonWriter& w) { w.beginArray().key("x"); }},
        {"two keys", [](JsonWriter& w) { w.beginObject().key("a").key("b"); }},
        {"close with pending key", [](JsonWriter& w) { w.beginObject().key("a").endObject(); }},
        {"second document", [](JsonWriter& w) { w.integer(1).integer(2); }},
        {"unfinished", [](JsonWriter& w) { (void)w.beginArray().finish(); }},
    };
    for (const auto& [name, misuse] : cases) {
        SCOPED_TRACE(name);
        JsonWriter writer;
        EXPECT_THROW(misuse(writer), std::logic_error);
    }
}

} // namespace
