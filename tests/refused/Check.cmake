# Compiles a source as it is, which must succeed, and once for each of its lines "WRONG n: text",
# which must fail with that text in what the compiler says.
#
#   cmake -D COMPILER=... -D SOURCE=... -D INCLUDE=... -P Check.cmake
cmake_minimum_required(VERSION 3.25)

function(compile wrong result output)
  execute_process(
    COMMAND ${COMPILER} -std=c++20 -fsyntax-only -I${INCLUDE} -DWRONG=${wrong} ${SOURCE}
    RESULT_VARIABLE code OUTPUT_VARIABLE text ERROR_VARIABLE text)
  set(${result} ${code} PARENT_SCOPE)
  set(${output} "${text}" PARENT_SCOPE)
endfunction()

set(ENV{LC_ALL} C)
compile(0 code text)
if(NOT code EQUAL 0)
  message(FATAL_ERROR "what is allowed does not compile:\n${text}")
endif()
file(STRINGS ${SOURCE} lines REGEX "^//   WRONG [0-9]+: ")
set(failures "")
set(checked 0)
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^//   WRONG ([0-9]+): .*$" "\\1" wrong "${line}")
  string(REGEX REPLACE "^//   WRONG [0-9]+: " "" expected "${line}")
  compile(${wrong} code text)
  string(FIND "${text}" "${expected}" found)
  if(code EQUAL 0)
    string(APPEND failures "WRONG ${wrong} is not refused\n")
  elseif(found EQUAL -1)
    string(APPEND failures "WRONG ${wrong}: \"${expected}\" is not in\n${text}\n")
  endif()
  math(EXPR checked "${checked} + 1")
endforeach()
if(checked EQUAL 0)
  message(FATAL_ERROR "nothing to check in ${SOURCE}")
endif()
if(failures)
  message(FATAL_ERROR "${failures}")
endif()
message(STATUS "${checked} lines refused")
