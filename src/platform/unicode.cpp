#include "platform/unicode.h"

#include "platform/fatal.h"
#include "platform/module_loader.h"

namespace tasket::platform::unicode {

const Functions& functions() {
    static const Functions* const table = [] {
        auto loaded = loadModuleTable({.inPrefix = TASKET_UNICODE_MODULE_IN_PREFIX,
                                       .built = TASKET_UNICODE_MODULE_BUILT,
                                       .entry = kModuleEntry,
                                       .what = "the Unicode module"},
                                      Functions::kVersion);
        if (!loaded)
            fatal(loaded.error().message + "; reinstall the program");
        return static_cast<const Functions*>(*loaded);
    }();
    return *table;
}

} // namespace tasket::platform::unicode
