# The plain-C host: proves the table layout and the records from C.
add_executable(c_host_test ${CMAKE_CURRENT_LIST_DIR}/c_host.c)
target_include_directories(c_host_test PRIVATE ${CMAKE_SOURCE_DIR}/include)
target_link_libraries(c_host_test PRIVATE ${CMAKE_DL_LIBS} m)
set_target_properties(c_host_test PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${VANTOR_TEST_DIR})
add_dependencies(c_host_test vantorengine)
add_test(NAME c_host COMMAND c_host_test $<TARGET_FILE:vantorengine>)

find_program(VALGRIND valgrind)
if(VALGRIND AND NOT VANTOR_SANITIZE)
  add_test(NAME c_host_valgrind
           COMMAND ${VALGRIND} --leak-check=full --errors-for-leak-kinds=definite,indirect
                   --error-exitcode=3 $<TARGET_FILE:c_host_test> $<TARGET_FILE:vantorengine>)
  set_tests_properties(c_host_valgrind PROPERTIES TIMEOUT 600)
endif()

# Exactly one exported symbol.
add_test(NAME single_export
         COMMAND sh -c "test \"$(nm -D --defined-only \"$1\" | awk '{print $3}' | grep -v '^_' | sort | tr '\\n' ' ')\" = 'GetProcessorFactory '"
                 -- $<TARGET_FILE:vantorengine>)

# The fingerprint test plays the comparison tool's preset cases through the built engine.
target_link_libraries(processor_sound_fingerprint_test PRIVATE vantor_compare_lib)
target_compile_definitions(processor_sound_fingerprint_test PRIVATE VANTOR_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
if(VANTOR_SANITIZE)
  target_compile_definitions(processor_sound_fingerprint_test PRIVATE VANTOR_SANITIZED_BUILD)
endif()
