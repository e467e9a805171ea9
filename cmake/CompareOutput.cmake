# Runs COMMAND (a list) and compares its standard output with the file EXPECTED; line ends may be
# those of either platform.
list(FILTER COMMAND EXCLUDE REGEX "^$")
execute_process(COMMAND ${COMMAND} OUTPUT_VARIABLE output RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the program ended with ${result}")
endif()
string(REPLACE "\r\n" "\n" output "${output}")
file(READ ${EXPECTED} expected)
if(NOT output STREQUAL expected)
  message(FATAL_ERROR "expected:\n${expected}\ngot:\n${output}")
endif()
