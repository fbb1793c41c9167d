// The JSON form of the records against golden files written by hand, a
// round trip over random records, and a strict decoder that names the key.
#include "support/temp_dir.h"
#include "transfer/record_codec.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <simdjson.h>

#include <cmath>
#include <fstream>
#include <random>
#include <sstream>

namespace tasket::transfer {
namespace {

const std::filesystem::path kData = TASKET_TRANSFER_DATA;

// Calls f(record type) for every record type.
template <class F> void forEachKind(F&& f) {
#define TK_SHARED_CALL(Record, Entity, contentType) f(Record{});
    TK_SHARED_RECORDS(TK_SHARED_CALL)
#undef TK_SHARED_CALL
}

TEST(RecordCodec, GoldenFilesDecodeAndEncodeByteForByte) {
    forEachKind([](auto kind) {
        using R = decltype(kind);
        const std::string golden =
            testing::readFile(kData / (std::string(RecordTraits<R>::kName) + ".json"));
        ASSERT_FALSE(golden.empty()) << RecordTraits<R>::kName;
        auto decoded = decode<R>(golden);
        ASSERT_TRUE(decoded) << decoded.error().message;
        auto encoded = encode(*decoded);
        ASSERT_TRUE(encoded);
        EXPECT_EQ(*encoded, golden) << RecordTraits<R>::kName;
    });
}

TEST(RecordCodec, GoldenTaskValues) {
    const auto task =
        decode<TK_SharedTask>(testing::readFile(kData / "TK_SharedTask.json")).value();
    EXPECT_EQ(task.title, "Café ☕ \"Plan\" 日本");
    EXPECT_EQ(task.url, "https://example.org/a/b?c=1");
    EXPECT_EQ(task.attachmentsData, (Bytes{0, 1, 2, 3, 4, 255}));
    EXPECT_EQ(task.sections, Strings{});
    EXPECT_EQ(task.dueTime, std::nullopt);
    EXPECT_EQ(task.startTime->secondsSinceReference, 700045200.5);
    EXPECT_EQ(task.categorySortIndex, -4);
    const auto folder =
        decode<TK_SharedFolder>(testing::readFile(kData / "TK_SharedFolder.json")).value();
    EXPECT_EQ(folder.tags, std::nullopt);
    EXPECT_EQ(folder.priorities, Strings{});
}

// Every golden file with each key left out, and with each value replaced
// by one of another type: the record fails and the message names the key.
TEST(RecordCodec, EachMissingKeyAndEachWrongTypeFailsNamingTheKey) {
    forEachKind([](auto kind) {
        using R = decltype(kind);
        simdjson::dom::parser parser;
        const std::string golden =
            testing::readFile(kData / (std::string(RecordTraits<R>::kName) + ".json"));
        const simdjson::dom::object object = parser.parse(golden).get_object().value();
        std::vector<std::pair<std::string, std::string>> members;
        for (const auto member : object)
            members.emplace_back(member.key, simdjson::minify(member.value));
        auto build = [&](std::size_t changed, std::optional<std::string> replacement) {
            std::string text = "{";
            for (std::size_t i = 0; i < members.size(); ++i) {
                if (i == changed && !replacement)
                    continue;
                text += (text.size() > 1 ? ",\"" : "\"") + members[i].first +
                        "\":" + (i == changed ? *replacement : members[i].second);
            }
            return text + "}";
        };
        for (std::size_t i = 0; i < members.size(); ++i) {
            const std::string& key = members[i].first;
            // A value of another type than the field's.
            FieldKind fieldKind = FieldKind::String;
            for (const auto& field : RecordTraits<R>::kFields)
                if (field.key == key)
                    fieldKind = field.kind;
            const std::string wrong = fieldKind == FieldKind::Refs ? "[1]"
                                      : fieldKind == FieldKind::Int ||
                                              fieldKind == FieldKind::Double ||
                                              fieldKind == FieldKind::Date
                                          ? "\"1\""
                                          : "1";
            for (const auto& replacement : {std::optional<std::string>(), std::optional(wrong)}) {
                auto decoded = decode<R>(build(i, replacement));
                ASSERT_FALSE(decoded) << RecordTraits<R>::kName << "." << key;
                EXPECT_THAT(decoded.error().message, ::testing::HasSubstr("\"" + key + "\""));
            }
        }
    });
}

TEST(RecordCodec, DecodingRulesBeyondTheGoldens) {
    struct Case {
        std::string json;
        bool decodes;
    };
    const std::string head = R"({"id":"A","title":null,"type":)";
    const std::string tail =
        R"(,"content":null,"fileExtension":null,"isShared":null,"shareRole":null,"sortIndex":null,"isPreviousAttachment":null,"creationDate":null,"numberOfModifications":null,"task":null,"subtask":null)";
    const std::vector<Case> cases = {
        {head + "2" + tail + R"(,"unknown":[1,{}]})", true}, // unknown keys are ignored
        {head + "2.0" + tail + "}", true},                   // an integral number is an integer
        {head + "2.5" + tail + "}", false},
        {head + "18446744073709551615" + tail + "}", false}, // beyond 64 bits
        {head + "2" + tail, false},                          // truncated
        {head + "2" + tail + "} x", false},                  // text after the object
        {R"(["not an object"])", false},
        {R"({"id":null})", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(decode<TK_SharedAttachment>(c.json).has_value(), c.decodes) << c.json;
}

TEST(RecordCodec, NonFiniteNumberFailsTheEncoding) {
    TK_SharedTask task{.id = "T"};
    task.repeatFrequency = std::nan("");
    auto encoded = encode(task);
    ASSERT_FALSE(encoded);
    EXPECT_NE(encoded.error().message.find("repeatFrequency"), std::string::npos);
}

// ---- Round trip over random records ------------------------------------------------

class RandomRecords {
  public:
    explicit RandomRecords(unsigned seed) : m_random(seed) {}

    template <class R> R make() {
        R record;
        record.id = text();
        for (const auto& field : RecordTraits<R>::kFields)
            std::visit([&](auto member) { fill(record.*member); }, field.member);
        return record;
    }

  private:
    bool chance() { return m_random() % 3 != 0; }
    std::string text() {
        static const std::vector<std::string> pieces = {
            "a", "/",    "\\", "\"",     "\n", "\t", std::string(1, '\x01'),
            "é", "日本", "☕",  "\u2028", " "};
        std::string out;
        for (auto n = m_random() % 6; n > 0; --n)
            out += pieces[m_random() % pieces.size()];
        return out;
    }
    void fill(std::optional<std::string>& out) {
        if (chance())
            out = text();
    }
    void fill(std::optional<std::int64_t>& out) {
        if (chance())
            out = static_cast<std::int64_t>(m_random() >> 1) - (1LL << 62);
    }
    void fill(std::optional<double>& out) {
        if (chance())
            out = std::ldexp(static_cast<double>(m_random()) - 1e18,
                             static_cast<int>(m_random() % 80) - 60);
    }
    void fill(std::optional<bool>& out) {
        if (chance())
            out = m_random() % 2 == 0;
    }
    void fill(std::optional<platform::Date>& out) {
        if (chance())
            out = platform::Date{static_cast<double>(m_random() % 2000000000) / 1024.0 - 1e6};
    }
    void fill(std::optional<Bytes>& out) {
        if (!chance())
            return;
        out.emplace(m_random() % 9);
        for (auto& byte : *out)
            byte = static_cast<std::uint8_t>(m_random());
    }
    void fill(std::optional<Strings>& out) {
        if (!chance())
            return;
        out.emplace();
        for (auto n = m_random() % 4; n > 0; --n)
            out->push_back(text());
    }

    std::mt19937_64 m_random;
};

TEST(RecordCodec, RandomRecordsSurviveTheRoundTrip) {
    RandomRecords random(20261122);
    for (int round = 0; round < 200; ++round)
        forEachKind([&](auto kind) {
            using R = decltype(kind);
            const R record = random.make<R>();
            const auto encoded = encode(record);
            ASSERT_TRUE(encoded);
            const auto decoded = decode<R>(*encoded);
            ASSERT_TRUE(decoded) << decoded.error().message << "\n" << *encoded;
            EXPECT_EQ(*decoded, record) << *encoded;
        });
}

} // namespace
} // namespace tasket::transfer
