# Writes the translation template OUTPUT from every text given to
# catalogueText() under ROOT/src and ROOT/apps, with the comment before each
# as its translator comment. No source locations: the template changes only
# when a text or its comment does.
#   cmake -DROOT=… -DOUTPUT=… -DXGETTEXT=… -DVERSION=… -P UpdateTemplate.cmake
file(GLOB_RECURSE sources RELATIVE ${ROOT}
  ${ROOT}/src/*.h ${ROOT}/src/*.cpp ${ROOT}/apps/*.h ${ROOT}/apps/*.cpp)
list(SORT sources)
execute_process(
  COMMAND ${XGETTEXT} --from-code=UTF-8 --language=C++ --keyword= --keyword=catalogueText
          --add-comments --no-location --package-name=tasket --package-version=${VERSION}
          --msgid-bugs-address= --output=${OUTPUT} ${sources}
  WORKING_DIRECTORY ${ROOT}
  RESULT_VARIABLE failed
  ERROR_VARIABLE complaints) # an empty bugs address draws a warning every time
if(failed)
  message(FATAL_ERROR "xgettext failed:\n${complaints}")
endif()
