// A small JSON writer for what the programs print with --json: objects,
// arrays, strings, numbers, booleans and null, written in the order they
// are given. Strings come out as UTF-8 with the escapes JSON requires;
// bytes that are not UTF-8 become U+FFFD, so the output always parses.
// Misuse (a value where a key belongs, unbalanced brackets) is a programmer
// error and throws std::logic_error.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::apps {

class JsonWriter {
  public:
    enum class Layout {
        pretty,  // two-space indentation, one member per line, final newline
        compact, // no whitespace at all
    };

    explicit JsonWriter(Layout layout = Layout::pretty) : m_layout(layout) {}

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
    /// Shortest text that reads back as the same double; null when not finite.
    JsonWriter& number(double value);
    JsonWriter& boolean(bool value);
    JsonWriter& null();

    /// The finished document; throws std::logic_error unless exactly one
    /// value was written and every object and array was closed.
    std::string finish() const;

  private:
    enum class Scope { object, array };

    void beforeValue();
    void newline();
    void close(Scope scope, char bracket);

    Layout m_layout;
    std::string m_text;
    std::vector<Scope> m_scopes;
    std::vector<bool> m_scopeHasMembers;
    bool m_keyPending = false;
    bool m_done = false;
};

} // namespace tasket::apps
