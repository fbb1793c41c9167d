// The user-visible texts in the user's language, through gettext. English
// is the source and the key: a text without a translation shows as
// written. The texts live in the "tasket" text domain, whose compiled
// catalogues are looked up in the installed locale folder, or in the folder
// that TASKET_LOCALEDIR names (tests, runs from the build tree).
#pragma once

#include <string>
#include <string_view>

namespace tasket::platform {

inline constexpr const char* kTextDomain = "tasket";

/// One text of the catalogue, held by its English source.
struct Text {
    const char* english;

    /// The text in the user's language; valid for the life of the process.
    [[nodiscard]] std::string_view translated() const;
};

/// Marks `english` as a text of the catalogue: xgettext extracts every
/// literal given to it, with the comment just above for the translators.
consteval Text catalogueText(const char* english) {
    return Text{english};
}

/// `english` in the user's language, or `english` itself when no catalogue
/// holds it; for texts known only at run time (a stored default).
std::string translated(std::string_view english);

/// At program start, before any thread: takes the locale from the
/// environment (numbers stay in the C form), binds the text domain to its
/// folder and asks for UTF-8. Until then every text shows in English.
void startTextCatalogue();

} // namespace tasket::platform
