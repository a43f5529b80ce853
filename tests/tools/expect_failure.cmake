# Runs a command that must fail with a message and leave no output file behind.
#   cmake -DCOMMAND=prog|arg|... -DEXPECT=regex [-DABSENT=path] -P expect_failure.cmake
# Arguments are separated by "|" so that they survive the trip through add_test.
string(REPLACE "|" ";" command "${COMMAND}")
execute_process(COMMAND ${command} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
message(STATUS "exit ${rc}\n${err}")
if(rc EQUAL 0)
  message(FATAL_ERROR "the command succeeded but should have failed")
endif()
if(NOT err MATCHES "${EXPECT}")
  message(FATAL_ERROR "the error message does not match '${EXPECT}'")
endif()
if(DEFINED ABSENT)
  file(GLOB leftovers "${ABSENT}" "${ABSENT}.part*")
  if(leftovers)
    message(FATAL_ERROR "files left behind: ${leftovers}")
  endif()
endif()
