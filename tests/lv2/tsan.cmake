# Two plugin instances in one process under ThreadSanitizer. The engine, the
# plugin and the lilv host are built a second time with -fsanitize=thread, the
# engine and plugin into a bundle of their own next to the tests, so that races
# inside the engine and the wrapper are seen, not only those in the host. An
# AddressSanitizer build cannot take a second sanitizer runtime: it skips this.
if(VANTOR_SANITIZE)
  return()
endif()

find_package(nlohmann_json 3 REQUIRED)
pkg_check_modules(TSAN_LV2 REQUIRED IMPORTED_TARGET lv2)

set(TSAN_FLAGS -fsanitize=thread -g -O1)
set(TSAN_LV2_DIR ${VANTOR_TEST_DIR}/lv2-tsan)
set(TSAN_BUNDLE ${TSAN_LV2_DIR}/vantor.lv2)
set(TSAN_EXPORTS -Wl,--version-script=${CMAKE_SOURCE_DIR}/tools/lv2/exports.map)

add_library(lv2_tsan_core STATIC ${VANTOR_CORE_SOURCES})
target_include_directories(lv2_tsan_core PUBLIC
  $<TARGET_PROPERTY:vantor_core,INTERFACE_INCLUDE_DIRECTORIES>)
target_link_libraries(lv2_tsan_core PUBLIC Threads::Threads ${CMAKE_DL_LIBS})

add_library(lv2_tsan_engine MODULE ${CMAKE_SOURCE_DIR}/src/processor/exports.cpp)
target_link_libraries(lv2_tsan_engine PRIVATE lv2_tsan_core)
target_link_options(lv2_tsan_engine PRIVATE
  -Wl,--version-script=${CMAKE_SOURCE_DIR}/src/processor/exports.map)

get_target_property(TSAN_HOSTCORE_DIR vantor_hostcore SOURCE_DIR)
get_target_property(TSAN_HOSTCORE_SOURCES vantor_hostcore SOURCES)
list(TRANSFORM TSAN_HOSTCORE_SOURCES PREPEND ${TSAN_HOSTCORE_DIR}/)
add_library(lv2_tsan_plugin MODULE ${CMAKE_SOURCE_DIR}/tools/lv2/vantor_lv2.cpp
  ${CMAKE_SOURCE_DIR}/tools/lv2/paramset.cpp ${TSAN_HOSTCORE_SOURCES})
target_include_directories(lv2_tsan_plugin PRIVATE ${CMAKE_SOURCE_DIR}/tools/lv2
  $<TARGET_PROPERTY:vantor_hostcore,INTERFACE_INCLUDE_DIRECTORIES>)
target_link_libraries(lv2_tsan_plugin PRIVATE nlohmann_json::nlohmann_json PkgConfig::TSAN_LV2
  ${CMAKE_DL_LIBS})
target_link_options(lv2_tsan_plugin PRIVATE ${TSAN_EXPORTS})

set_target_properties(lv2_tsan_engine PROPERTIES OUTPUT_NAME vantorengine)
set_target_properties(lv2_tsan_plugin PROPERTIES OUTPUT_NAME vantor_lv2)
foreach(target lv2_tsan_core lv2_tsan_engine lv2_tsan_plugin)
  target_compile_options(${target} PRIVATE ${TSAN_FLAGS})
  target_link_options(${target} PRIVATE -fsanitize=thread)
  set_target_properties(${target} PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY ${TSAN_BUNDLE})
endforeach()

# The bundle's data: the same Turtle and engine files as the plain bundle.
add_custom_command(OUTPUT ${TSAN_BUNDLE}/manifest.ttl
  COMMAND ${CMAKE_COMMAND} -E make_directory ${TSAN_BUNDLE}
  COMMAND ${CMAKE_COMMAND} -E copy ${VANTOR_LV2_BUNDLE}/manifest.ttl ${VANTOR_LV2_BUNDLE}/vantor.ttl
          ${VANTOR_LV2_BUNDLE}/presets.ttl ${VANTOR_LV2_BUNDLE}/init.json ${VANTOR_ENGINE_DATA}
          ${TSAN_BUNDLE}/
  DEPENDS vantor_lv2_bundle ${VANTOR_LV2_BUNDLE}/manifest.ttl ${VANTOR_ENGINE_DATA}
  VERBATIM)
add_custom_target(lv2_tsan_bundle ALL DEPENDS ${TSAN_BUNDLE}/manifest.ttl)
add_dependencies(lv2_tsan_bundle lv2_tsan_engine lv2_tsan_plugin)

add_executable(lv2_lilv_host_tsan ${CMAKE_CURRENT_LIST_DIR}/lilv_host.c)
target_link_libraries(lv2_lilv_host_tsan PRIVATE PkgConfig::LILV PkgConfig::SNDFILE m
  ${CMAKE_DL_LIBS} Threads::Threads)
target_compile_options(lv2_lilv_host_tsan PRIVATE ${TSAN_FLAGS} -Wno-pedantic)
target_include_directories(lv2_lilv_host_tsan PRIVATE ${CMAKE_SOURCE_DIR}/tests/support)
target_link_options(lv2_lilv_host_tsan PRIVATE -fsanitize=thread)
set_target_properties(lv2_lilv_host_tsan PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${VANTOR_TEST_DIR})
add_dependencies(lv2_lilv_host_tsan lv2_tsan_bundle)

add_test(NAME lv2.host.twice_tsan COMMAND lv2_lilv_host_tsan twice)
set_tests_properties(lv2.host.twice_tsan PROPERTIES TIMEOUT 300
  ENVIRONMENT "LV2_PATH=${TSAN_LV2_DIR};TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1")
