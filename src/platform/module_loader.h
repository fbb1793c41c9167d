// Adapters that bring many shared objects (iCalendar, HTTP and TLS for the
// calendar stores; libpq and through it Kerberos, LDAP and GnuTLS for the
// cloud database) are built as modules that a program loads the first time
// it needs one, instead of loading and relocating them at every start. The
// module and the programs are built together, so C++ types cross between
// them as they are. Each module exports one function returning a pointer to
// a table of factories whose first member is the table's version.
#pragma once

#include "platform/error.h"

#include <string_view>

namespace tasket::platform {

/// Where a module is found and what it exports.
struct ModuleLocation {
    /// Its path under the installation's prefix (the folder above the
    /// running program's own, bin or libexec), e.g. "lib/tasket/x.so".
    std::string_view inPrefix;
    /// Where this build put it, tried second.
    std::string_view built;
    /// The exported function returning the table.
    const char* entry;
    /// What it is, for messages: "the calendar store module".
    std::string_view what;
};

/// Loads the module (once; it stays loaded, since what it makes runs its
/// code) and returns the table its entry function gives. Fails with
/// `unavailable`, saying why, when no candidate loads or when the table's
/// version is not `version`.
[[nodiscard]] Result<const void*> loadModuleTable(const ModuleLocation& location, int version);

} // namespace tasket::platform
