# Fails when a file includes a header of a later library. Run as a test:
#   cmake -DROOT=<source dir> -P cmake/CheckLayers.cmake
# The order is the link order of the libraries under src/, then the
# programs under apps/. A file may include headers of its own library and
# of the libraries before it, never of one after it.
set(layers
  platform objectstore/model objectstore/predicate objectstore rules settings store
  transfer cloud reminders services share)

function(layer_of path out)
  # Longest matching prefix wins, so objectstore/model is not objectstore.
  set(best -1)
  set(best_length 0)
  set(index 0)
  foreach(layer IN LISTS layers)
    string(LENGTH "${layer}/" length)
    string(SUBSTRING "${path}" 0 ${length} head)
    if(head STREQUAL "${layer}/" AND length GREATER best_length)
      set(best ${index})
      set(best_length ${length})
    endif()
    math(EXPR index "${index} + 1")
  endforeach()
  set(${out} ${best} PARENT_SCOPE)
endfunction()

list(LENGTH layers apps_layer)
file(GLOB_RECURSE sources RELATIVE ${ROOT}/src ${ROOT}/src/*.h ${ROOT}/src/*.cpp ${ROOT}/src/*.def)
file(GLOB_RECURSE programs RELATIVE ${ROOT} ${ROOT}/apps/*.h ${ROOT}/apps/*.cpp)
set(failures "")
foreach(file IN LISTS sources programs)
  if(file MATCHES "^apps/")
    set(own ${apps_layer})
    set(full ${ROOT}/${file})
  else()
    layer_of("${file}" own)
    set(full ${ROOT}/src/${file})
  endif()
  file(STRINGS ${full} includes REGEX "^#include \"")
  foreach(line IN LISTS includes)
    string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" header "${line}")
    layer_of("${header}" theirs)
    if(theirs GREATER own)
      list(GET layers ${theirs} their_name)
      string(APPEND failures "  ${file} includes ${header} (library ${their_name} comes later)\n")
    endif()
  endforeach()
endforeach()
if(failures)
  message(FATAL_ERROR "Includes that point up the layer order:\n${failures}")
endif()
