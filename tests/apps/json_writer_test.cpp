#include "common/json_writer.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

using tasket::apps::JsonWriter;

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
            .finish();
    };
    // clang-format on
    EXPECT_EQ(write(JsonWriter(JsonWriter::Layout::compact)),
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
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"say \"hi\"\\", R"("say \"hi\"\\")"},
        {"line\nbreak\ttab\r\b\f", R"("line\nbreak\ttab\r\b\f")"},
        {"nul\0byte\x1f"sv, R"("nul\u0000byte\u001f")"},
        {"\xf0\x9f\x98\x80 \xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d \xe2\x80\x8f",
         "\"\xf0\x9f\x98\x80 \xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d \xe2\x80\x8f\""},
        {"bad \xff byte, cut \xe2\x9c", "\"bad \xef\xbf\xbd byte, cut \xef\xbf\xbd\xef\xbf\xbd\""},
        {"surrogate \xed\xa0\x80", "\"surrogate \xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\""},
        {"a/b", R"("a/b")"},
    };
    for (const auto& [text, json] : cases) {
        SCOPED_TRACE(json);
        EXPECT_EQ(JsonWriter(JsonWriter::Layout::compact).string(text).finish(), json);
    }
}

TEST(JsonWriter, WritesNumbersThatReadBack) {
    const std::pair<double, std::string_view> cases[] = {
        {0.1, "0.1"},
        {-2.5e-8, "-2.5e-08"},
        {std::numeric_limits<double>::quiet_NaN(), "null"},
        {std::numeric_limits<double>::infinity(), "null"},
    };
    for (const auto& [value, json] : cases) {
        SCOPED_TRACE(json);
        EXPECT_EQ(JsonWriter(JsonWriter::Layout::compact).number(value).finish(), json);
    }
    EXPECT_EQ(JsonWriter(JsonWriter::Layout::compact)
                  .integer(std::numeric_limits<std::int64_t>::min())
                  .finish(),
              "-9223372036854775808");
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
