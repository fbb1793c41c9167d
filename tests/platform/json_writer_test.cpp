#include "platform/json_writer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <vector>

using tasket::platform::JsonWriter;
using Form = JsonWriter::Form;

namespace {

TEST(JsonWriter, WritesPrettyAndCompactDocuments) {
    // clang-format off
    const auto write = [](JsonWriter writer) {
        return writer.beginObject()
            .key("title").string("Buy milk")
            .key("count").integer(-3)
            .key("ratio").number(0.25)
            .key("done").boolean(false)
            .key("link").null()
            .key("tags").beginArray().string("a").integer(1).beginObject().endObject().endArray()
            .key("empty").beginArray().endArray()
            .endObject()
            .finish()
            .value();
    };
    // clang-format on
    EXPECT_EQ(write(JsonWriter(Form::compact)),
              R"({"title":"Buy milk","count":-3,"ratio":0.25,"done":false,"link":null,)"
              R"("tags":["a",1,{}],"empty":[]})");
    EXPECT_EQ(write(JsonWriter()), R"({
  "title": "Buy milk",
  "count": -3,
  "ratio": 0.25,
  "done": false,
  "link": null,
  "tags": [
    "a",
    1,
    {}
  ],
  "empty": []
}
)");
}

TEST(JsonWriter, EscapesStringsAndKeepsAnyUnicode) {
    using namespace std::string_view_literals;
    struct Case {
        std::string_view text;
        std::string_view json;
        std::string_view record = {}; // the record form, where it differs
    };
    const Case cases[] = {
        {"say \"hi\"\\", R"("say \"hi\"\\")"},
        {"line\nbreak\ttab\r\b\f", R"("line\nbreak\ttab\r\b\f")"},
        {"nul\0byte\x1f"sv, R"("nul\u0000byte\u001f")"},
        {"\xf0\x9f\x98\x80 \xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d \xe2\x80\x8f",
         "\"\xf0\x9f\x98\x80 \xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d \xe2\x80\x8f\""},
        {"bad \xff byte, cut \xe2\x9c", "\"bad \xef\xbf\xbd byte, cut \xef\xbf\xbd\xef\xbf\xbd\""},
        {"surrogate \xed\xa0\x80", "\"surrogate \xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\""},
        {"https://a.example/b", R"("https://a.example/b")", R"("https:\/\/a.example\/b")"},
    };
    for (const auto& [text, json, record] : cases) {
        SCOPED_TRACE(json);
        EXPECT_EQ(JsonWriter(Form::compact).string(text).finish(), json);
        EXPECT_EQ(JsonWriter(Form::record).string(text).finish(), record.empty() ? json : record);
    }
    // A key is a string like any other.
    EXPECT_EQ(JsonWriter(Form::record).beginObject().key("a/b").null().endObject().finish(),
              R"({"a\/b":null})");
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
    for (const double value :
         {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
          -std::numeric_limits<double>::infinity()}) {
        SCOPED_TRACE(value);
        const auto write = [value](Form form) {
            return JsonWriter(form)
                .beginObject()
                .key("dueDate")
                .number(value)
                .key("tags")
                .beginArray()
                .endArray()
                .endObject()
                .finish();
        };
        EXPECT_EQ(write(Form::compact), R"({"dueDate":null,"tags":[]})");
        const auto record = write(Form::record);
        ASSERT_FALSE(record);
        EXPECT_EQ(record.error().code, tasket::platform::Errc::invalidArgument);
        EXPECT_NE(record.error().message.find("\"dueDate\""), std::string::npos)
            << record.error().message;
    }
}

TEST(JsonWriter, WritesARecordCompactInTheOrderGivenWithDataAsBase64) {
    const std::vector<std::uint8_t> png = {0x89, 'P', 'N', 'G', 0xff};
    // clang-format off
    const auto record = JsonWriter(Form::record)
        .beginObject()
        .key("zeta").string("Caf\xc3\xa9 \xe2\x9c\x93")
        .key("alpha").null()
        .key("data").data(png)
        .key("empty").data({})
        .key("dates").beginArray().number(0).number(-978307200).endArray()
        .endObject()
        .finish();
    // clang-format on
    EXPECT_EQ(record, "{\"zeta\":\"Caf\xc3\xa9 \xe2\x9c\x93\",\"alpha\":null,"
                      "\"data\":\"iVBOR\\/8=\",\"empty\":\"\",\"dates\":[0,-978307200]}");
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
