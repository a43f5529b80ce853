# rtcount.so: the LD_PRELOAD library that counts heap and mutex calls, shared by
# every host-level test that audits real-time calls.
include_guard(GLOBAL)
add_library(rtcount SHARED ${CMAKE_CURRENT_LIST_DIR}/rtcount.cpp)
target_include_directories(rtcount PUBLIC ${CMAKE_CURRENT_LIST_DIR})
set_target_properties(rtcount PROPERTIES PREFIX "" CXX_VISIBILITY_PRESET default
                      LIBRARY_OUTPUT_DIRECTORY ${VANTOR_TEST_DIR})
