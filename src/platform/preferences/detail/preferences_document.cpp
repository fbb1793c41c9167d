#include "platform/preferences/detail/preferences_document.h"

#include "platform/base64.h"
#include "platform/text.h"

#include <fmt/core.h>
#include <simdjson.h>

namespace tasket::platform::detail {
namespace {

constexpr std::string_view kDateTag = "date";
constexpr std::string_view kDataTag = "data";
constexpr std::string_view kDictionaryTag = "dictionary";

// ---- Reading -----------------------------------------------------------------

using simdjson::dom::element;
using simdjson::dom::element_type;

Result<PreferenceValue> readValue(element e, std::string_view key);

Result<PreferenceDictionary> readObject(simdjson::dom::object object) {
    PreferenceDictionary values;
    for (auto field : object) {
        auto value = readValue(field.value, field.key);
        if (!value)
            return std::unexpected(value.error());
        if (!values.emplace(std::string(field.key), std::move(*value)).second)
            return fail(Errc::parseError, fmt::format("key \"{}\" appears twice", field.key));
    }
    return values;
}

Result<PreferenceValue> readTagged(simdjson::dom::object object, std::string_view key) {
    if (object.size() != 1)
        return fail(Errc::parseError,
                    fmt::format("value of \"{}\" is an object without a single type tag", key));
    auto [tag, inner] = *object.begin();
    if (tag == kDateTag) {
        if (inner.is_double())
            return PreferenceValue(Date{inner.get_double().value_unsafe()});
        if (inner.is_int64())
            return PreferenceValue(Date{static_cast<double>(inner.get_int64().value_unsafe())});
    } else if (tag == kDataTag) {
        if (inner.is_string()) {
            if (auto bytes = decodeBase64(inner.get_string().value_unsafe()))
                return PreferenceValue(std::move(*bytes));
        }
    } else if (tag == kDictionaryTag) {
        simdjson::dom::object members;
        if (!inner.get_object().get(members)) {
            auto nested = readObject(members);
            if (!nested)
                return std::unexpected(nested.error());
            return Result<PreferenceValue>(std::in_place, std::move(*nested));
        }
    }
    return fail(Errc::parseError, fmt::format("value of \"{}\" has an unknown or malformed "
                                              "type tag \"{}\"",
                                              key, tag));
}

Result<PreferenceValue> readValue(element e, std::string_view key) {
    switch (e.type()) {
    case element_type::BOOL: return PreferenceValue(e.get_bool().value_unsafe());
    case element_type::INT64: return PreferenceValue(e.get_int64().value_unsafe());
    case element_type::DOUBLE: return PreferenceValue(e.get_double().value_unsafe());
    case element_type::STRING: return PreferenceValue(std::string(e.get_string().value_unsafe()));
    case element_type::ARRAY: {
        simdjson::dom::array items;
        if (e.get_array().get(items))
            break;
        PreferenceStringList list;
        for (element item : items) {
            if (!item.is_string())
                return fail(Errc::parseError,
                            fmt::format("list under \"{}\" holds something other than text", key));
            list.emplace_back(item.get_string().value_unsafe());
        }
        return PreferenceValue(std::move(list));
    }
    case element_type::OBJECT: {
        simdjson::dom::object members;
        if (e.get_object().get(members))
            break;
        return readTagged(members, key);
    }
    case element_type::UINT64:
        return fail(Errc::parseError, fmt::format("integer under \"{}\" is out of range", key));
    case element_type::NULL_VALUE:
        return fail(Errc::parseError, fmt::format("value of \"{}\" is null", key));
    }
    return fail(Errc::parseError, fmt::format("value of \"{}\" is malformed", key));
}

// ---- Writing -----------------------------------------------------------------

void writeString(std::string& out, std::string_view text) {
    appendJsonString(out, text);
}

void writeDouble(std::string& out, double value) {
    // Shortest text that reads back to the same double; a fraction or an
    // exponent keeps it a double when read again.
    std::string text = fmt::format("{}", value);
    if (text.find_first_of(".e") == std::string::npos)
        text += ".0";
    out += text;
}

void writeIndent(std::string& out, int depth) {
    out.append(static_cast<std::size_t>(depth) * 2, ' ');
}

void writeDictionary(std::string& out, const PreferenceDictionary& values, int depth);

void writeValue(std::string& out, const PreferenceValue& value, int depth) {
    struct Writer {
        std::string& out;
        int depth;
        void operator()(bool v) const { out += v ? "true" : "false"; }
        void operator()(std::int64_t v) const { out += fmt::format("{}", v); }
        void operator()(double v) const { writeDouble(out, v); }
        void operator()(const std::string& v) const { writeString(out, v); }
        void operator()(const Date& v) const {
            out += "{\"date\": ";
            writeDouble(out, v.secondsSinceReference);
            out += '}';
        }
        void operator()(const PreferenceData& v) const {
            out += "{\"data\": ";
            writeString(out, encodeBase64(v));
            out += '}';
        }
        void operator()(const PreferenceStringList& v) const {
            out += '[';
            for (std::size_t i = 0; i < v.size(); ++i) {
                if (i > 0)
                    out += ", ";
                writeString(out, v[i]);
            }
            out += ']';
        }
        void operator()(const PreferenceDictionary& v) const {
            out += "{\"dictionary\": ";
            writeDictionary(out, v, depth);
            out += '}';
        }
    };
    std::visit(Writer{out, depth}, value.storage());
}

void writeDictionary(std::string& out, const PreferenceDictionary& values, int depth) {
    if (values.empty()) {
        out += "{}";
        return;
    }
    out += "{\n";
    bool first = true;
    for (const auto& [key, value] : values) {
        if (!first)
            out += ",\n";
        first = false;
        writeIndent(out, depth + 1);
        writeString(out, key);
        out += ": ";
        writeValue(out, value, depth + 1);
    }
    out += '\n';
    writeIndent(out, depth);
    out += '}';
}

} // namespace

Result<PreferenceDictionary> parsePreferencesDocument(std::string_view text) {
    thread_local simdjson::dom::parser parser;
    element root;
    if (auto error = parser.parse(text.data(), text.size()).get(root))
        return fail(Errc::parseError,
                    fmt::format("not valid JSON ({})", simdjson::error_message(error)));
    if (!root.is_object())
        return fail(Errc::parseError, "the document is not a JSON object");
    return readObject(root.get_object().value_unsafe());
}

std::string writePreferencesDocument(const PreferenceDictionary& values) {
    std::string out;
    writeDictionary(out, values, 0);
    out += '\n';
    return out;
}

} // namespace tasket::platform::detail
