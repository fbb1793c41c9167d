#include "transfer/record_codec.h"

#include "platform/base64.h"
#include "transfer/detail/record_decoder.h"

#include <fmt/format.h>

#include <bitset>
#include <cmath>
#include <cstring>
#include <vector>

namespace tasket::transfer {
namespace {

using platform::Errc;
using platform::JsonWriter;
using platform::Result;
namespace dom = simdjson::dom;

// ---- Encoding --------------------------------------------------------------------

void writeValue(JsonWriter& json, const std::string& value) {
    json.string(value);
}
void writeValue(JsonWriter& json, std::int64_t value) {
    json.integer(value);
}
void writeValue(JsonWriter& json, double value) {
    json.number(value);
}
void writeValue(JsonWriter& json, bool value) {
    json.boolean(value);
}
void writeValue(JsonWriter& json, platform::Date value) {
    json.number(value.secondsSinceReference);
}
void writeValue(JsonWriter& json, const Bytes& value) {
    json.data(value);
}
void writeValue(JsonWriter& json, const Strings& value) {
    json.beginArray();
    for (const auto& text : value)
        json.string(text);
    json.endArray();
}
template <class T> void writeValue(JsonWriter& json, const std::optional<T>& value) {
    if (value)
        writeValue(json, *value);
    else
        json.null();
}

// ---- Decoding ----------------------------------------------------------------------

// What went wrong with one value: empty when it was read.
using Problem = std::string;

std::string_view typeName(dom::element_type type) {
    switch (type) {
    case dom::element_type::ARRAY: return "a list";
    case dom::element_type::OBJECT: return "an object";
    case dom::element_type::INT64:
    case dom::element_type::UINT64:
    case dom::element_type::DOUBLE: return "a number";
    case dom::element_type::STRING: return "a string";
    case dom::element_type::BOOL: return "true or false";
    case dom::element_type::NULL_VALUE: return "null";
    }
    return "something else";
}

bool isNumber(dom::element_type type) {
    return type == dom::element_type::INT64 || type == dom::element_type::UINT64 ||
           type == dom::element_type::DOUBLE;
}

bool refuse(Problem& problem, Problem text) {
    problem = std::move(text);
    return false;
}

Problem wrongType(std::string_view expected, dom::element_type found) {
    return fmt::format("must be {}, not {}", expected, typeName(found));
}

bool readPresent(dom::element value, std::string& out, Problem& problem) {
    if (value.type() != dom::element_type::STRING)
        return refuse(problem, wrongType("a string", value.type()));
    out.assign(value.get_string().value_unsafe());
    return true;
}

bool readPresent(dom::element value, std::int64_t& out, Problem& problem) {
    switch (value.type()) {
    case dom::element_type::INT64: out = value.get_int64().value_unsafe(); return true;
    case dom::element_type::UINT64: return refuse(problem, "must be an integer within 64 bits");
    case dom::element_type::DOUBLE: {
        // An integral number written with a fraction or exponent is still
        // an integer, when it fits.
        const double number = value.get_double().value_unsafe();
        if (std::trunc(number) == number && number >= -0x1p63 && number < 0x1p63) {
            out = static_cast<std::int64_t>(number);
            return true;
        }
        return refuse(problem, fmt::format("must be an integer, not {}", number));
    }
    default: return refuse(problem, wrongType("an integer", value.type()));
    }
}

bool readPresent(dom::element value, double& out, Problem& problem) {
    if (!isNumber(value.type()))
        return refuse(problem, wrongType("a number", value.type()));
    out = value.get_double().value_unsafe();
    return true;
}

bool readPresent(dom::element value, bool& out, Problem& problem) {
    if (value.type() != dom::element_type::BOOL)
        return refuse(problem, wrongType("true or false", value.type()));
    out = value.get_bool().value_unsafe();
    return true;
}

bool readPresent(dom::element value, platform::Date& out, Problem& problem) {
    if (!isNumber(value.type()))
        return refuse(problem, wrongType("a date (seconds since 2001)", value.type()));
    out.secondsSinceReference = value.get_double().value_unsafe();
    return true;
}

bool readPresent(dom::element value, Bytes& out, Problem& problem) {
    if (value.type() != dom::element_type::STRING)
        return refuse(problem, wrongType("Base64 data", value.type()));
    auto bytes = platform::decodeBase64(value.get_string().value_unsafe());
    if (!bytes)
        return refuse(problem, "must be padded standard Base64");
    out = std::move(*bytes);
    return true;
}

bool readPresent(dom::element value, Strings& out, Problem& problem) {
    if (value.type() != dom::element_type::ARRAY)
        return refuse(problem, wrongType("a list of strings", value.type()));
    const dom::array array = value.get_array().value_unsafe();
    out.reserve(array.size());
    for (const dom::element item : array) {
        if (item.type() != dom::element_type::STRING)
            return refuse(problem, fmt::format("must be a list of strings, not hold {}",
                                               typeName(item.type())));
        out.emplace_back(item.get_string().value_unsafe());
    }
    return true;
}

template <class T> bool readOptional(dom::element value, std::optional<T>& out, Problem& problem) {
    if (value.is_null()) {
        out.reset();
        return true;
    }
    out.emplace();
    return readPresent(value, *out, problem);
}
// A text is made straight from the parsed one, not assigned to an empty one.
bool readOptional(dom::element value, std::optional<std::string>& out, Problem& problem) {
    const auto type = value.type();
    if (type == dom::element_type::STRING) [[likely]] {
        out.emplace(value.get_string().value_unsafe());
        return true;
    }
    if (type == dom::element_type::NULL_VALUE) {
        out.reset();
        return true;
    }
    return refuse(problem, wrongType("a string", type));
}

// One reader per field of R, indexed like kFields: a call through a table
// instead of a visit of the member's variant for every value.
template <class R> using FieldReader = bool (*)(dom::element, R&, Problem&);

template <class R, std::size_t I>
[[gnu::flatten]] bool readField(dom::element value, R& record, Problem& problem) {
    constexpr auto member = RecordTraits<R>::kFields[I].member;
    return readOptional(value, record.*std::get<member.index()>(member), problem);
}

template <class R, std::size_t... I>
constexpr std::array<FieldReader<R>, sizeof...(I)> fieldReaders(std::index_sequence<I...>) {
    return {&readField<R, I>...};
}

// Whether two keys are equal, eight bytes at a time (the last word
// overlapping the one before), since matching keys is most of decoding.
inline std::uint64_t word(const char* at) {
    std::uint64_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
}
inline std::uint32_t halfWord(const char* at) {
    std::uint32_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
}
[[gnu::always_inline]] inline bool sameKey(std::string_view a, std::string_view b) {
    const std::size_t n = a.size();
    if (n != b.size())
        return false;
    const char* p = a.data();
    const char* q = b.data();
    if (n >= 8) {
        for (std::size_t i = 0; i + 8 < n; i += 8)
            if (word(p + i) != word(q + i))
                return false;
        return word(p + n - 8) == word(q + n - 8);
    }
    if (n >= 4)
        return halfWord(p) == halfWord(q) && halfWord(p + n - 4) == halfWord(q + n - 4);
    for (std::size_t i = 0; i < n; ++i)
        if (p[i] != q[i])
            return false;
    return true;
}

template <class R>
platform::Error failure(const R& record, std::string_view key, std::string_view problem) {
    const std::string who = record.id.empty()
                                ? std::string(RecordTraits<R>::kName)
                                : fmt::format("{} \"{}\"", RecordTraits<R>::kName, record.id);
    return {Errc::parseError, fmt::format("{}: \"{}\" {}", who, key, problem)};
}

// The index in kFields of `key`, trying `next` first since keys usually come
// in declared order; -1 for a key the record does not list.
template <class R> [[gnu::noinline, gnu::cold]] int searchedFieldIndex(std::string_view key) {
    const auto& fields = RecordTraits<R>::kFields;
    for (std::size_t i = 0; i < fields.size(); ++i)
        if (sameKey(fields[i].key, key))
            return static_cast<int>(i);
    return -1;
}
template <class R>
[[gnu::always_inline]] inline int fieldIndex(std::string_view key, std::size_t next) {
    const auto& fields = RecordTraits<R>::kFields;
    if (next < fields.size() && sameKey(fields[next].key, key)) [[likely]]
        return static_cast<int>(next);
    return searchedFieldIndex<R>(key);
}

} // namespace

template <class R> void writeRecord(JsonWriter& json, const R& record) {
    json.beginObject();
    json.key("id").string(record.id);
    for (const auto& field : RecordTraits<R>::kFields) {
        json.key(field.key);
        std::visit([&](auto member) { writeValue(json, record.*member); }, field.member);
    }
    json.endObject();
}

template <class R> Result<std::string> encode(const R& record) {
    JsonWriter json(JsonWriter::Form::record);
    writeRecord(json, record);
    auto text = json.finish();
    if (!text)
        return std::unexpected(
            platform::Error{text.error().code, fmt::format("{} \"{}\": {}", RecordTraits<R>::kName,
                                                           record.id, text.error().message)});
    return text;
}

namespace detail {

simdjson::simdjson_result<dom::element> parseText(std::string_view text) {
    thread_local simdjson::dom::parser parser;
    return parser.parse(text.data(), text.size(), true);
}

template <class R> Result<R> decodeObject(dom::object object) {
    constexpr auto& fields = RecordTraits<R>::kFields;
    static constexpr auto kReaders = fieldReaders<R>(std::make_index_sequence<fields.size()>());
    // Filled in place and returned by name on every path, failures too, so
    // that the record (over a kilobyte) is never moved.
    Result<R> result(std::in_place);
    R& record = *result;
    const auto fail = [&](std::string_view key, std::string_view what) {
        result = std::unexpected(failure(record, key, what));
    };
    bool seenID = false;
    std::bitset<fields.size()> seen;
    std::size_t next = 0;
    Problem problem;
    // The iterator's key() and value() rather than its pair, which costs a
    // stall per field as it passes through memory; the end is found once,
    // since writes to the record could alias the tape as far as the
    // compiler knows.
    const auto end = object.end();
    for (auto member = object.begin(); member != end; ++member) {
        const std::string_view key = member.key();
        const dom::element value = member.value();
        if (key.size() == 2 && key[0] == 'i' && key[1] == 'd') {
            if (!readPresent(value, record.id, problem)) {
                fail(key, problem);
                return result;
            }
            seenID = true;
            continue;
        }
        const int index = fieldIndex<R>(key, next);
        if (index < 0)
            continue;
        next = static_cast<std::size_t>(index) + 1;
        if (!kReaders[static_cast<std::size_t>(index)](value, record, problem)) {
            fail(key, problem);
            return result;
        }
        seen.set(static_cast<std::size_t>(index));
    }
    if (!seenID) {
        fail("id", "is missing");
        return result;
    }
    if (!seen.all())
        for (std::size_t i = 0; i < fields.size(); ++i)
            if (!seen[i]) {
                fail(fields[i].key, "is missing");
                return result;
            }
    return result;
}

namespace {
using ObjectDecoder = Result<AnyRecord> (*)(dom::object);
template <class R> Result<AnyRecord> decodeAny(dom::object object) {
    auto record = decodeObject<R>(object);
    if (!record)
        return std::unexpected(record.error());
    return AnyRecord(std::move(*record));
}
struct KindDecoder {
    std::string_view name;
    ObjectDecoder decode;
};
#define TK_SHARED_DECODER(Record, Entity, contentType) KindDecoder{#Record, &decodeAny<Record>},
constexpr std::array kDecoders{TK_SHARED_RECORDS(TK_SHARED_DECODER)};
#undef TK_SHARED_DECODER
} // namespace

Result<AnyRecord> decodeObjectOfKind(std::string_view kind, dom::object object) {
    for (const auto& decoder : kDecoders)
        if (decoder.name == kind)
            return decoder.decode(object);
    return platform::fail(Errc::invalidArgument, fmt::format("unknown record kind \"{}\"", kind));
}

} // namespace detail

namespace {

template <class F>
auto parseObject(std::string_view json, std::string_view what, F&& decodeFound)
    -> decltype(decodeFound(std::declval<dom::object>())) {
    dom::element document;
    if (auto error = detail::parseText(json).get(document))
        return platform::fail(Errc::parseError, fmt::format("{}: not valid JSON ({})", what,
                                                            simdjson::error_message(error)));
    if (document.type() != dom::element_type::OBJECT)
        return platform::fail(Errc::parseError, fmt::format("{}: not a JSON object", what));
    return decodeFound(document.get_object().value_unsafe());
}

} // namespace

template <class R> Result<R> decode(std::string_view json) {
    return parseObject(json, RecordTraits<R>::kName,
                       [](dom::object object) { return detail::decodeObject<R>(object); });
}

Result<AnyRecord> decodeKind(std::string_view kind, std::string_view json) {
    return parseObject(
        json, kind, [&](dom::object object) { return detail::decodeObjectOfKind(kind, object); });
}

std::string_view kindOf(const AnyRecord& any) {
    std::string_view name;
    visitRecord(any, [&](const auto& record) {
        name = RecordTraits<std::decay_t<decltype(record)>>::kName;
    });
    return name;
}

const std::string& idOf(const AnyRecord& any) {
    static const std::string kNone;
    const std::string* id = &kNone;
    visitRecord(any, [&](const auto& record) { id = &record.id; });
    return *id;
}

#define TK_SHARED_INSTANTIATE(Record, Entity, contentType)                                         \
    template void writeRecord<Record>(JsonWriter&, const Record&);                                 \
    template Result<std::string> encode<Record>(const Record&);                                    \
    template Result<Record> decode<Record>(std::string_view);                                      \
    template Result<Record> detail::decodeObject<Record>(dom::object);
TK_SHARED_RECORDS(TK_SHARED_INSTANTIATE)
#undef TK_SHARED_INSTANTIATE

} // namespace tasket::transfer
