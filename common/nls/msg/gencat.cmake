# Compiles INPUT with gencat to OUTPUT, which appears whole or not at all: a running process may have the old
# one mapped. gencat reports what is wrong with a source and succeeds all the same, so any word from it
# fails the build.
file(REMOVE "${OUTPUT}.new")
execute_process(COMMAND "${GENCAT}" --new -o "${OUTPUT}.new" "${INPUT}"
  RESULT_VARIABLE result OUTPUT_VARIABLE said ERROR_VARIABLE complained)
if(NOT result EQUAL 0 OR NOT "${said}${complained}" STREQUAL "")
  file(REMOVE "${OUTPUT}.new")
  message(FATAL_ERROR "gencat ${INPUT}: ${said}${complained}")
endif()
file(RENAME "${OUTPUT}.new" "${OUTPUT}")
