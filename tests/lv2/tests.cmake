# The LV2 plugin: its bundle checked by the LV2 tools, and played by a lilv host.
if(NOT TARGET vantor_lv2)
  return()
endif()
find_package(PkgConfig REQUIRED)
pkg_check_modules(LILV IMPORTED_TARGET lilv-0)
pkg_check_modules(SERD IMPORTED_TARGET serd-0)

# The state grid against the serd library that hosts write state with.
if(SERD_FOUND)
  add_executable(lv2_state_grid ${CMAKE_CURRENT_LIST_DIR}/state_grid.cpp)
  target_link_libraries(lv2_state_grid PRIVATE vantor_lv2_params PkgConfig::SERD GTest::gtest
    GTest::gtest_main)
  set_target_properties(lv2_state_grid PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${VANTOR_TEST_DIR})
  gtest_discover_tests(lv2_state_grid TEST_PREFIX lv2. DISCOVERY_TIMEOUT 60)
endif()
find_program(SERDI serdi)
find_program(LV2_VALIDATE lv2_validate)
find_program(LV2INFO lv2info)

set(LV2_ENV "LV2_PATH=${CMAKE_BINARY_DIR}/lv2")
set(LV2_OUT ${VANTOR_TEST_DIR}/lv2)
file(MAKE_DIRECTORY ${LV2_OUT})

foreach(ttl manifest vantor presets)
  if(SERDI)
    add_test(NAME lv2.bundle.parses.${ttl}
      COMMAND ${SERDI} -q -i turtle -o ntriples ${VANTOR_LV2_BUNDLE}/${ttl}.ttl)
    set_tests_properties(lv2.bundle.parses.${ttl} PROPERTIES LABELS lv2)
    set_property(TEST lv2.bundle.parses.${ttl} APPEND PROPERTY FAIL_REGULAR_EXPRESSION "error")
  endif()
endforeach()
if(SERDI)
  add_test(NAME lv2.bundle.preset_banks_and_sounds COMMAND ${CMAKE_CURRENT_LIST_DIR}/presets_gen.sh
    $<TARGET_FILE:vantor-lv2gen> ${VANTOR_LV2_BUNDLE}/vantorengine.so
    ${CMAKE_SOURCE_DIR}/data/presets/init.json ${LV2_OUT}/presets)
endif()
if(LV2_VALIDATE)
  # lv2_validate exits 0 even on errors: judge its summary line.
  add_test(NAME lv2.bundle.validates COMMAND ${LV2_VALIDATE} ${VANTOR_LV2_BUNDLE}/manifest.ttl
    ${VANTOR_LV2_BUNDLE}/vantor.ttl ${VANTOR_LV2_BUNDLE}/presets.ttl)
  set_tests_properties(lv2.bundle.validates PROPERTIES PASS_REGULAR_EXPRESSION "Found 0 errors")
endif()
if(LV2INFO)
  add_test(NAME lv2.bundle.lv2info COMMAND ${LV2INFO} urn:norvell:vantor)
  set_tests_properties(lv2.bundle.lv2info PROPERTIES ENVIRONMENT ${LV2_ENV}
    PASS_REGULAR_EXPRESSION "Name: +Vantor.*Has latency: +no.*Presets:.*Pad")
endif()
add_test(NAME lv2.bundle.exports_only_descriptor
  COMMAND sh -c "test \"$(nm -D --defined-only '$<TARGET_FILE:vantor_lv2>' | awk '{print $3}')\" = lv2_descriptor")

# jalv under a JACK dummy server, with notes from jack_midiseq and jack_capture recording.
find_program(JALV jalv)
find_program(JACKD jackd)
find_program(JACK_MIDISEQ jack_midiseq)
find_program(JACK_CAPTURE jack_capture)
# Outside hosts cannot load a plugin built with the sanitizers.
if(JALV AND JACKD AND JACK_MIDISEQ AND JACK_CAPTURE AND NOT VANTOR_SANITIZE)
  add_test(NAME lv2.jalv.plays COMMAND ${CMAKE_CURRENT_LIST_DIR}/jalv_jack.sh
    ${CMAKE_BINARY_DIR}/lv2 ${LV2_OUT}/jalv $<TARGET_FILE:tools_render_wavcheck>)
  set_tests_properties(lv2.jalv.plays PROPERTIES TIMEOUT 120 RUN_SERIAL TRUE)
endif()

# A session round trip in headless Ardour.
find_program(ARDOUR_LUA NAMES ardour7-lua ardour8-lua)
if(ARDOUR_LUA AND NOT VANTOR_SANITIZE)
  add_test(NAME lv2.ardour.session_round_trip COMMAND ${CMAKE_CURRENT_LIST_DIR}/ardour_session.sh
    ${CMAKE_BINARY_DIR}/lv2 ${LV2_OUT}/ardour ${VANTOR_LV2_BUNDLE}/presets.ttl)
  set_tests_properties(lv2.ardour.session_round_trip PROPERTIES TIMEOUT 600 RUN_SERIAL TRUE)
endif()

if(NOT LILV_FOUND)
  return()
endif()
add_executable(lv2_lilv_host ${CMAKE_CURRENT_LIST_DIR}/lilv_host.c)
target_link_libraries(lv2_lilv_host PRIVATE PkgConfig::LILV PkgConfig::SNDFILE m ${CMAKE_DL_LIBS}
  Threads::Threads)
set_target_properties(lv2_lilv_host PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${VANTOR_TEST_DIR})
add_dependencies(lv2_lilv_host vantor_lv2_bundle vantor-render)
target_compile_options(lv2_lilv_host PRIVATE -Wno-pedantic)
target_include_directories(lv2_lilv_host PRIVATE ${CMAKE_SOURCE_DIR}/tests/support)

include(${CMAKE_SOURCE_DIR}/tests/support/rtcount.cmake)

set(HOST $<TARGET_FILE:lv2_lilv_host>)
foreach(test blocks state presets twice notify)
  add_test(NAME lv2.host.${test} COMMAND ${HOST} ${test} $<TARGET_FILE:vantor-render> ${LV2_OUT})
  set_tests_properties(lv2.host.${test} PROPERTIES ENVIRONMENT ${LV2_ENV})
endforeach()
# The installed bundle, alone on LV2_PATH, loads its presets and plays.
add_test(NAME lv2.install.loads COMMAND sh -c "rm -rf \"$1\" && DESTDIR=\"$1\" \"$2\" --install \"$3\" \
--prefix /usr --component lv2 >/dev/null && LV2_PATH=\"$1/usr/lib/lv2\" \"$4\" installed" sh
  ${LV2_OUT}/installed ${CMAKE_COMMAND} ${CMAKE_BINARY_DIR} ${HOST})
set_tests_properties(lv2.install.loads PROPERTIES PASS_REGULAR_EXPRESSION "installed: passed")

if(NOT VANTOR_SANITIZE)
  # Reports the CPU of an idle and a playing instance; the figures are not judged.
  add_test(NAME lv2.host.cpu COMMAND ${HOST} cpu)
  set_tests_properties(lv2.host.cpu PROPERTIES ENVIRONMENT ${LV2_ENV})
  add_test(NAME lv2.host.rt COMMAND ${HOST} rt)
  set_tests_properties(lv2.host.rt PROPERTIES
    ENVIRONMENT "${LV2_ENV};LD_PRELOAD=$<TARGET_FILE:rtcount>;RTCOUNT_KNOWN=0")
endif()

include(${CMAKE_CURRENT_LIST_DIR}/tsan.cmake)

# A user's own presets become a presets-only bundle that hosts list beside the shipped ones.
if(LV2INFO)
  file(WRITE ${LV2_OUT}/user-presets/my_sound.json
    "{\"name\": \"My Quiet Saw\", \"category\": \"User\", \"values\": {\"master_volume\": 0.3}}\n")
  add_test(NAME lv2.bundle.user_presets COMMAND sh -c
    "rm -rf \"$3\" && \"$1\" --presets-only \"$2\" \"$4\" \"$3\" && LV2_PATH=\"$5:$(dirname \"$3\")\" \"$6\" urn:norvell:vantor"
    sh $<TARGET_FILE:vantor-lv2gen> ${VANTOR_LV2_BUNDLE}/vantorengine.so
    ${LV2_OUT}/user-lv2/vantor-user-presets.lv2 ${LV2_OUT}/user-presets
    ${CMAKE_BINARY_DIR}/lv2 ${LV2INFO})
  set_tests_properties(lv2.bundle.user_presets PROPERTIES
    PASS_REGULAR_EXPRESSION "Presets:.*My Quiet Saw.*Wide Pad|Presets:.*Wide Pad.*My Quiet Saw")
endif()
