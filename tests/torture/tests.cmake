# The host-level torture suite: a plain-C host, and the LD_PRELOAD library
# that counts heap and mutex calls around the per-block operations.
include(${CMAKE_SOURCE_DIR}/tests/support/rtcount.cmake)

add_executable(vantor_torture ${CMAKE_CURRENT_LIST_DIR}/torture.c)
target_include_directories(vantor_torture PRIVATE ${CMAKE_SOURCE_DIR}/include
                           ${CMAKE_SOURCE_DIR}/tests/support)
target_link_libraries(vantor_torture PRIVATE ${CMAKE_DL_LIBS} m Threads::Threads)
set_target_properties(vantor_torture PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${VANTOR_TEST_DIR})
add_dependencies(vantor_torture vantorengine rtcount)

# The counting library replaces malloc, which the sanitizers own, so the
# sanitizer build leaves out row 5, and row 6 too (minutes of audio whose
# figure is a timing, which the sanitizers distort).
if(VANTOR_SANITIZE)
  add_test(NAME torture COMMAND vantor_torture $<TARGET_FILE:vantorengine> 1 2 3 4 7 8 9 10)
else()
  add_test(NAME torture COMMAND vantor_torture $<TARGET_FILE:vantorengine>)
  set_tests_properties(torture PROPERTIES ENVIRONMENT "LD_PRELOAD=$<TARGET_FILE:rtcount>")
endif()
set_tests_properties(torture PROPERTIES TIMEOUT 900)
