# vantor-jack under JACK dummy servers, played with jack_midiseq, recorded with jack_capture.
find_program(JACKD jackd)
find_program(JACK_MIDISEQ jack_midiseq)
find_program(JACK_CAPTURE jack_capture)
find_program(SOX sox)
# A sanitizer build cannot keep up with a JACK period in real time: JACK would
# throw the client out, so the live test runs against the plain build only.
if(TARGET vantor-jack AND JACKD AND JACK_MIDISEQ AND JACK_CAPTURE AND SOX AND NOT VANTOR_SANITIZE)
  add_test(NAME jack.live.plays COMMAND ${CMAKE_CURRENT_LIST_DIR}/live_jack.sh
    $<TARGET_FILE:vantor-jack> ${CMAKE_BINARY_DIR}/tests/jack_out)
  set_tests_properties(jack.live.plays PROPERTIES TIMEOUT 120 RUN_SERIAL TRUE)
endif()
