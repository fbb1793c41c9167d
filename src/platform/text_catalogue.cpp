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
    // An environment naming a locale this machine lacks leaves the C
    // locale, in which gettext ignores LANGUAGE; C.UTF-8 keeps it heard.
    if (!std::setlocale(LC_ALL, ""))
        std::setlocale(LC_ALL, "C.UTF-8");
    // Numbers written to files, JSON and SQL keep their point.
    std::setlocale(LC_NUMERIC, "C");
    const char* folder = std::getenv("TASKET_LOCALEDIR");
    ::bindtextdomain(kTextDomain, folder && *folder ? folder : TASKET_INSTALLED_LOCALEDIR);
    ::bind_textdomain_codeset(kTextDomain, "UTF-8");
}

} // namespace tasket::platform
