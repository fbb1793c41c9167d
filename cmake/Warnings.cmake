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
