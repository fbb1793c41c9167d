#include "platform/json_writer.h"

#include "platform/base64.h"
#include "platform/text.h"

#include <fmt/format.h>

#include <cmath>
#include <stdexcept>

namespace tasket::platform {
namespace {

JsonSolidus solidusOf(JsonWriter::Form form) {
    return form == JsonWriter::Form::record ? JsonSolidus::escaped : JsonSolidus::literal;
}

} // namespace

void JsonWriter::newline() {
    if (m_form == Form::pretty) {
        m_text += '\n';
        m_text.append((m_depth + m_scopes.size()) * 2, ' ');
    }
}

void JsonWriter::beforeValue() {
    if (m_done)
        throw std::logic_error("JsonWriter: a second value after the document ended");
    if (m_scopes.empty())
        return;
    if (m_scopes.back() == Scope::object) {
        if (!m_keyPending)
            throw std::logic_error("JsonWriter: a value in an object needs a key first");
        m_keyPending = false;
        return;
    }
    if (m_scopeHasMembers.back())
        m_text += ',';
    m_scopeHasMembers.back() = true;
    newline();
}

void JsonWriter::afterValue() {
    m_done = m_scopes.empty();
}

JsonWriter& JsonWriter::key(std::string_view name) {
    if (m_scopes.empty() || m_scopes.back() != Scope::object || m_keyPending)
        throw std::logic_error("JsonWriter: a key outside an object or after another key");
    if (m_scopeHasMembers.back())
        m_text += ',';
    m_scopeHasMembers.back() = true;
    newline();
    appendJsonString(m_text, name, solidusOf(m_form));
    m_text += m_form == Form::pretty ? ": " : ":";
    m_lastKey = name;
    m_keyPending = true;
    return *this;
}

JsonWriter& JsonWriter::beginObject() {
    beforeValue();
    m_text += '{';
    m_scopes.push_back(Scope::object);
    m_scopeHasMembers.push_back(false);
    return *this;
}

JsonWriter& JsonWriter::beginArray() {
    beforeValue();
    m_text += '[';
    m_scopes.push_back(Scope::array);
    m_scopeHasMembers.push_back(false);
    return *this;
}

void JsonWriter::close(Scope scope, char bracket) {
    if (m_scopes.empty() || m_scopes.back() != scope || m_keyPending)
        throw std::logic_error("JsonWriter: closing what is not open");
    const bool hadMembers = m_scopeHasMembers.back();
    m_scopes.pop_back();
    m_scopeHasMembers.pop_back();
    if (hadMembers)
        newline();
    m_text += bracket;
    if (m_scopes.empty())
        m_done = true;
}

JsonWriter& JsonWriter::endObject() {
    close(Scope::object, '}');
    return *this;
}

JsonWriter& JsonWriter::endArray() {
    close(Scope::array, ']');
    return *this;
}

JsonWriter& JsonWriter::string(std::string_view text) {
    beforeValue();
    appendJsonString(m_text, text, solidusOf(m_form));
    afterValue();
    return *this;
}

JsonWriter& JsonWriter::integer(std::int64_t value) {
    beforeValue();
    m_text += fmt::format("{}", value);
    afterValue();
    return *this;
}

JsonWriter& JsonWriter::number(double value) {
    if (!std::isfinite(value)) {
        if (m_form == Form::record && !m_failure) {
            // The member written last names the place: the number's own
            // key, or the key of the array it stands in.
            m_failure =
                Error{Errc::invalidArgument,
                      fmt::format("the number under \"{}\" is not finite ({})", m_lastKey, value)};
        }
        return null();
    }
    beforeValue();
    m_text += fmt::format("{}", value);
    afterValue();
    return *this;
}

JsonWriter& JsonWriter::boolean(bool value) {
    beforeValue();
    m_text += value ? "true" : "false";
    afterValue();
    return *this;
}

JsonWriter& JsonWriter::null() {
    beforeValue();
    m_text += "null";
    afterValue();
    return *this;
}

JsonWriter& JsonWriter::data(std::span<const std::uint8_t> bytes) {
    return string(encodeBase64(bytes));
}

Result<std::string> JsonWriter::finish() const {
    if (!m_done)
        throw std::logic_error("JsonWriter: the document is not complete");
    if (m_failure)
        return std::unexpected(*m_failure);
    return m_form == Form::pretty ? m_text + '\n' : m_text;
}

} // namespace tasket::platform
