#include "common/json_writer.h"

#include <cmath>
#include <fmt/format.h>
#include <stdexcept>

namespace tasket::apps {
namespace {

// Length of the well-formed UTF-8 sequence at `i`, or 0.
std::size_t utf8SequenceLength(std::string_view s, std::size_t i) {
    const auto lead = static_cast<unsigned char>(s[i]);
    std::size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xbf;
    if (lead >= 0xc2 && lead <= 0xdf) {
        length = 2;
    } else if (lead >= 0xe0 && lead <= 0xef) {
        length = 3;
        low = lead == 0xe0 ? 0xa0 : 0x80;
        high = lead == 0xed ? 0x9f : 0xbf;
    } else if (lead >= 0xf0 && lead <= 0xf4) {
        length = 4;
        low = lead == 0xf0 ? 0x90 : 0x80;
        high = lead == 0xf4 ? 0x8f : 0xbf;
    } else {
        return 0;
    }
    if (i + length > s.size())
        return 0;
    for (std::size_t k = 1; k < length; ++k) {
        const auto c = static_cast<unsigned char>(s[i + k]);
        if (c < (k == 1 ? low : 0x80) || c > (k == 1 ? high : 0xbf))
            return 0;
    }
    return length;
}

void appendQuoted(std::string& out, std::string_view text) {
    out += '"';
    for (std::size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80) {
            const std::size_t length = utf8SequenceLength(text, i);
            if (length == 0) {
                out += "\xef\xbf\xbd"; // U+FFFD for a byte that starts no character
                ++i;
            } else {
                out.append(text.substr(i, length));
                i += length;
            }
            continue;
        }
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        default:
            if (c < 0x20)
                out += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
            else
                out += static_cast<char>(c);
        }
        ++i;
    }
    out += '"';
}

} // namespace

void JsonWriter::newline() {
    if (m_layout == Layout::pretty) {
        m_text += '\n';
        m_text.append(m_scopes.size() * 2, ' ');
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

JsonWriter& JsonWriter::key(std::string_view name) {
    if (m_scopes.empty() || m_scopes.back() != Scope::object || m_keyPending)
        throw std::logic_error("JsonWriter: a key outside an object or after another key");
    if (m_scopeHasMembers.back())
        m_text += ',';
    m_scopeHasMembers.back() = true;
    newline();
    appendQuoted(m_text, name);
    m_text += m_layout == Layout::pretty ? ": " : ":";
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
    appendQuoted(m_text, text);
    m_done = m_scopes.empty();
    return *this;
}

JsonWriter& JsonWriter::integer(std::int64_t value) {
    beforeValue();
    m_text += fmt::format("{}", value);
    m_done = m_scopes.empty();
    return *this;
}

JsonWriter& JsonWriter::number(double value) {
    if (!std::isfinite(value))
        return null();
    beforeValue();
    m_text += fmt::format("{}", value);
    m_done = m_scopes.empty();
    return *this;
}

JsonWriter& JsonWriter::boolean(bool value) {
    beforeValue();
    m_text += value ? "true" : "false";
    m_done = m_scopes.empty();
    return *this;
}

JsonWriter& JsonWriter::null() {
    beforeValue();
    m_text += "null";
    m_done = m_scopes.empty();
    return *this;
}

std::string JsonWriter::finish() const {
    if (!m_done)
        throw std::logic_error("JsonWriter: the document is not complete");
    return m_layout == Layout::pretty ? m_text + '\n' : m_text;
}

} // namespace tasket::apps
