# One warning set for every target of the project.
add_library(tasket_warnings INTERFACE)
target_compile_options(tasket_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
  -Wcast-align -Woverloaded-virtual -Wimplicit-fallthrough
  $<$<BOOL:${TASKET_WERROR}>:-Werror>
  # g++ 12 misreads inlined std::string, std::equal and std::variant code at
  # -O2 (known false positives in its -Wrestrict, -Wstringop-* and
  # -Wmaybe-uninitialized passes); debug builds keep maybe-uninitialized.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict -Wno-stringop-overread -Wno-stringop-overflow>
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<NOT:$<CONFIG:Debug>>>:-Wno-maybe-uninitialized>)

# tasket_add_library(NAME FOLDER SOURCES... LINK libs...)
function(tasket_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK;PRIVATE_LINK" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC ${ARG_LINK} PRIVATE tasket_warnings ${ARG_PRIVATE_LINK})
endfunction()

# tasket_add_module(NAME ENTRY source LINK library LOADER target DEFINE PREFIX)
# A module a program loads when it first needs it (platform/module_loader.h):
# the library it carries stays its own, only the entry point is exported,
# and it installs under lib/tasket. LOADER gets PREFIX_IN_PREFIX (its path
# under the installation's prefix) and PREFIX_BUILT (where this build put it).
function(tasket_add_module name)
  cmake_parse_arguments(ARG "" "ENTRY;LINK;LOADER;DEFINE" "" ${ARGN})
  add_library(${name} MODULE ${ARG_ENTRY})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} tasket_warnings)
  target_link_options(${name} PRIVATE -Wl,--exclude-libs,ALL)
  set_target_properties(${name} PROPERTIES CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  install(TARGETS ${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/tasket)
  set(file ${CMAKE_SHARED_MODULE_PREFIX}${name}${CMAKE_SHARED_MODULE_SUFFIX})
  target_compile_definitions(${ARG_LOADER} PRIVATE
    ${ARG_DEFINE}_IN_PREFIX="${CMAKE_INSTALL_LIBDIR}/tasket/${file}"
    ${ARG_DEFINE}_BUILT="$<TARGET_FILE:${name}>")
endfunction()
