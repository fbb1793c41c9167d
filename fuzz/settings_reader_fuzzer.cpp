// Feeds arbitrary bytes to the settings reader. Whatever it accepts must be
// a dictionary the writer takes, and writing it and reading it back must
// give the same values and, written again, the same text.
#include "platform/preferences/detail/preferences_document.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace tasket::platform;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    auto parsed = detail::parsePreferencesDocument(text);
    if (!parsed)
        return 0;
    if (!validatePreferenceDictionary(*parsed))
        std::abort();
    const std::string written = detail::writePreferencesDocument(*parsed);
    auto reread = detail::parsePreferencesDocument(written);
    if (!reread || *reread != *parsed)
        std::abort();
    if (detail::writePreferencesDocument(*reread) != written)
        std::abort();
    return 0;
}
