# Fails when po/tasket.pot no longer matches the texts in the sources, so a
# text changed without `--target pot` does not reach the translators late.
#   cmake -DROOT=… -DFRESH=… -DXGETTEXT=… -DVERSION=… -P CheckTemplate.cmake
set(OUTPUT ${FRESH})
include(${CMAKE_CURRENT_LIST_DIR}/UpdateTemplate.cmake)
foreach(which committed fresh)
  if(which STREQUAL committed)
    file(STRINGS ${ROOT}/po/tasket.pot lines)
  else()
    file(STRINGS ${FRESH} lines)
  endif()
  list(FILTER lines EXCLUDE REGEX "^\"POT-Creation-Date:")
  set(${which} "${lines}")
endforeach()
if(NOT committed STREQUAL fresh)
  message(FATAL_ERROR "po/tasket.pot is out of date: run `cmake --build --preset debug --target pot` and commit it")
endif()
