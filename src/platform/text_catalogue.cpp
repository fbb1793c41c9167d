#include "platform/text_catalogue.h"

#include <libintl.h>

#include <clocale>
#include <cstdlib>

namespace tasket::platform {

std::string_view Text::translated() const {
    return ::dgettext(kTextDomain, english);
}

std::string translated(std::string_view english) {
    if (english.empty())
        return {}; // gettext keeps the catalogue's header under ""
    const std::string key(english);
    return ::dgettext(kTextDomain, key.c_str());
}

void startTextCatalogue() {
    // Only what the programs use: the character set and the messages.
    // The others (collation, dates and numbers are ICU's, and numbers
    // written to files, JSON and SQL keep their point) cost a file each to
    // load at every start. An environment naming a locale this machine
    // lacks leaves the C locale, in which gettext ignores LANGUAGE;
    // C.UTF-8 keeps it heard.
    for (const int category : {LC_CTYPE, LC_MESSAGES})
        if (!std::setlocale(category, ""))
            std::setlocale(category, "C.UTF-8");
    const char* folder = std::getenv("TASKET_LOCALEDIR");
    ::bindtextdomain(kTextDomain, folder && *folder ? folder : TASKET_INSTALLED_LOCALEDIR);
    ::bind_textdomain_codeset(kTextDomain, "UTF-8");
}

} // namespace tasket::platform
