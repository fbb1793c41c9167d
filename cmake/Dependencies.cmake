# Every external dependency, found once. scripts/bootstrap installs them.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
find_package(fmt REQUIRED)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
# SQLite is linked into the programs from its static archive (shipped with
# the same -dev package) when there is one: a shared library is found,
# mapped and relocated at every start, about 0.16 ms for SQLite, against a
# short command's few milliseconds.
find_library(TASKET_SQLITE3_ARCHIVE NAMES libsqlite3.a)
if(TASKET_SQLITE3_ARCHIVE)
  set_target_properties(SQLite::SQLite3 PROPERTIES IMPORTED_LOCATION "${TASKET_SQLITE3_ARCHIVE}"
    INTERFACE_LINK_LIBRARIES "Threads::Threads;m;dl")
endif()
pkg_check_modules(LIBPQ REQUIRED IMPORTED_TARGET libpq)
find_package(CLI11 CONFIG QUIET)
if(TASKET_BUILD_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
if(TASKET_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
