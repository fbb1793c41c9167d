// A small JSON writer: objects, arrays, strings, numbers, booleans, null and
// Base64 data, written in the order they are given. It has two uses with
// two forms: what people read (`tasket --json`, pretty or compact, where a
// number that is not finite becomes null) and the transfer-record form
// (compact, "/" as "\/", and a number that is not finite fails the
// document). Strings come out as raw UTF-8 with the escapes JSON requires;
// bytes that are not UTF-8 become U+FFFD, so the output always parses.
// Misuse (a value where a key belongs, unbalanced brackets) is a programmer
// error and throws std::logic_error.
#pragma once

#include "platform/error.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::platform {

class JsonWriter {
  public:
    enum class Form {
        pretty,  // for people: two-space indentation, one member per line, final newline
        compact, // for people, without any whitespace
        record,  // transfer records: compact, "/" as "\/", a non-finite number fails
    };

    explicit JsonWriter(Form form = Form::pretty) : m_form(form) {}
    /// Pretty, every line after the first indented `depth` levels more: a
    /// document that goes inside another one written by hand.
    [[nodiscard]] static JsonWriter nested(std::size_t depth) {
        JsonWriter json;
        json.m_depth = depth;
        return json;
    }

    // ---- Structure ---------------------------------------------------------------
    JsonWriter& beginObject();
    JsonWriter& endObject();
    JsonWriter& beginArray();
    JsonWriter& endArray();
    /// The name of the next member; only inside an object.
    JsonWriter& key(std::string_view name);

    // ---- Values --------------------------------------------------------------------
    JsonWriter& string(std::string_view text);
    JsonWriter& integer(std::int64_t value);
    /// The shortest text that reads back as the same double; an integral
    /// value has no ".0". Not finite: null, or in the record form a failed
    /// document.
    JsonWriter& number(double value);
    JsonWriter& boolean(bool value);
    JsonWriter& null();
    /// `bytes` as a string of padded standard Base64.
    JsonWriter& data(std::span<const std::uint8_t> bytes);

    /// The finished document. Fails (invalidArgument, naming the member)
    /// when a record held a number that is not finite; the forms for people
    /// never fail. Throws std::logic_error unless exactly one value was
    /// written and every object and array was closed.
    [[nodiscard]] Result<std::string> finish() const;

  private:
    enum class Scope { object, array };

    void beforeValue();
    void afterValue();
    void newline();
    void close(Scope scope, char bracket);

    Form m_form;
    std::size_t m_depth = 0; // levels every line after the first is indented by
    std::string m_text;
    std::vector<Scope> m_scopes;
    std::vector<bool> m_scopeHasMembers;
    std::string m_lastKey;
    bool m_keyPending = false;
    bool m_done = false;
    std::optional<Error> m_failure;
};

} // namespace tasket::platform
