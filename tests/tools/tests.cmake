# Tests of vantor-render: unit tests on its library, and end-to-end runs of the
# built program against the real engine (they need a complete engine to pass;
# one that renders silence still yields WAV files of the right length).
foreach(test midifile loop audiofile options levels)
  target_link_libraries(tools_render_${test}_test PRIVATE vantor_render_lib)
endforeach()
foreach(test preset blockprocessor)
  target_link_libraries(tools_hostcore_${test}_test PRIVATE vantor_hostcore)
  target_compile_definitions(tools_hostcore_${test}_test PRIVATE
    VANTOR_PRESET_DIR="${VANTOR_PRESET_DIR}")
  add_dependencies(tools_hostcore_${test}_test vantor_presets)
endforeach()

add_executable(tools_render_wavcheck ${CMAKE_CURRENT_LIST_DIR}/wavcheck.cpp)
target_link_libraries(tools_render_wavcheck PRIVATE PkgConfig::SNDFILE)
set_target_properties(tools_render_wavcheck PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${VANTOR_TEST_DIR})

set(RENDER_OUT ${VANTOR_TEST_DIR}/render_e2e)
file(MAKE_DIRECTORY ${RENDER_OUT})
set(RENDER $<TARGET_FILE:vantor-render>)
set(WAVCHECK $<TARGET_FILE:tools_render_wavcheck>)
set(CLIP ${RENDER_OUT}/clip.mid) # 1.5 s: 66150 frames at 44100 Hz, 72000 at 48000 Hz

# Renders with ARGS; when CHECK is given, a second test checks the WAV with wavcheck.
function(vantor_render_test name)
  cmake_parse_arguments(T "" "" "ARGS;CHECK;REQUIRES" ${ARGN})
  add_test(NAME tools.render.${name} COMMAND ${RENDER} ${T_ARGS} --quiet)
  set_tests_properties(tools.render.${name} PROPERTIES
    FIXTURES_REQUIRED "render_clip;${T_REQUIRES}" FIXTURES_SETUP render_${name})
  if(T_CHECK)
    add_test(NAME tools.render.${name}.check COMMAND ${WAVCHECK} ${T_CHECK})
    set_tests_properties(tools.render.${name}.check PROPERTIES FIXTURES_REQUIRED render_${name})
  endif()
endfunction()

# A run that must fail with a message matching EXPECT and leave ABSENT unwritten;
# errors exit with 1 unless CODE=2 comes first in ARGN (a command-line error).
function(vantor_render_failure name expect absent)
  set(code 1)
  if("${ARGV3}" STREQUAL "CODE=2")
    set(code 2)
    list(POP_FRONT ARGN)
  endif()
  string(REPLACE ";" "|" command "${RENDER};${ARGN}")
  add_test(NAME tools.render.fails.${name}
    COMMAND ${CMAKE_COMMAND} "-DCOMMAND=${command}" "-DEXPECT=${expect}" "-DABSENT=${absent}"
            -DCODE=${code} -P ${CMAKE_CURRENT_LIST_DIR}/expect_failure.cmake)
  set_tests_properties(tools.render.fails.${name} PROPERTIES FIXTURES_REQUIRED render_clip)
endfunction()

add_test(NAME tools.render.make_clip COMMAND $<TARGET_FILE:vantor-mkdemo> --clip ${CLIP})
set_tests_properties(tools.render.make_clip PROPERTIES FIXTURES_SETUP render_clip)

# The committed demo piece is what the generator writes.
add_test(NAME tools.render.demo_file_is_generated
  COMMAND ${CMAKE_COMMAND} -E chdir ${RENDER_OUT} sh -c
          "'$<TARGET_FILE:vantor-mkdemo>' demo.mid && cmp demo.mid '${CMAKE_SOURCE_DIR}/data/demo/demo.mid'")

vantor_render_test(length_44100 ARGS ${CLIP} -o ${RENDER_OUT}/clip44.wav --tail 0
  CHECK ${RENDER_OUT}/clip44.wav --frames 66150 --rate 44100 --format 24)
vantor_render_test(length_48000_float ARGS ${CLIP} -o ${RENDER_OUT}/clip48.wav --tail 0
  --rate 48000 --format float
  CHECK ${RENDER_OUT}/clip48.wav --frames 72000 --rate 48000 --format float)
vantor_render_test(tail_16bit ARGS ${CLIP} -o ${RENDER_OUT}/tail.wav --tail 2 --format 16
  CHECK ${RENDER_OUT}/tail.wav --min-frames 66150 --max-frames 154350 --format 16)

# Same input and seed: same bytes, with the noise waveform drawing on the random generator.
set(NOISE --set voice1_osc1_noise-on=1)
vantor_render_test(seed_a ARGS ${CLIP} -o ${RENDER_OUT}/seed_a.wav --seed 7 --tail 1 ${NOISE})
vantor_render_test(seed_b ARGS ${CLIP} -o ${RENDER_OUT}/seed_b.wav --seed 7 --tail 1 ${NOISE}
  REQUIRES render_seed_a)
add_test(NAME tools.render.seed_b.same
  COMMAND ${CMAKE_COMMAND} -E compare_files ${RENDER_OUT}/seed_a.wav ${RENDER_OUT}/seed_b.wav)
set_tests_properties(tools.render.seed_b.same PROPERTIES FIXTURES_REQUIRED render_seed_b)

# The main command: the demo with the default preset; 26.709 s of MIDI, audible.
vantor_render_test(demo ARGS ${VANTOR_DOC_DIR}/demo.mid -o ${RENDER_OUT}/demo.wav
  CHECK ${RENDER_OUT}/demo.wav --min-frames 1177879 --rate 44100 --min-peak 0.01)

# The committed category phrases are what the generator writes.
add_test(NAME tools.render.phrase_files_are_generated
  COMMAND ${CMAKE_COMMAND} -E chdir ${RENDER_OUT} sh -c
          "mkdir -p phrases && '$<TARGET_FILE:vantor-mkdemo>' --phrases phrases && cd phrases && \
           for f in *.mid; do cmp $f '${CMAKE_SOURCE_DIR}/data/demo/'$f || exit 1; done")

# Every shipped preset loads into the real engine (all its names exist) and plays its
# category's phrase (as in the gallery) with a peak between -24 and -1 dBFS.
file(GLOB preset_files CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/data/presets/*.json)
# The sanitizer build renders every eighth preset: the plain build checks them all.
set(preset_index 0)
foreach(file ${preset_files})
  math(EXPR preset_index "${preset_index} + 1")
  math(EXPR preset_skip "${preset_index} % 8")
  if(VANTOR_SANITIZE AND NOT preset_skip EQUAL 1)
    continue()
  endif()
  get_filename_component(preset ${file} NAME_WE)
  file(READ ${file} json)
  string(JSON category ERROR_VARIABLE no_category GET "${json}" category)
  string(TOLOWER "${category}" category)
  set(phrase ${CMAKE_SOURCE_DIR}/data/demo/phrase-${category}.mid)
  if(no_category OR NOT EXISTS ${phrase})
    set(phrase ${CMAKE_SOURCE_DIR}/data/demo/phrase-init.mid)
  endif()
  vantor_render_test(preset_${preset} ARGS ${phrase} -o ${RENDER_OUT}/preset_${preset}.wav
    --tail 3 --seed 1 --format float --preset ${preset}
    CHECK ${RENDER_OUT}/preset_${preset}.wav --min-peak 0.0631 --max-peak 0.891)
  set_tests_properties(tools.render.preset_${preset} PROPERTIES ENVIRONMENT XDG_DATA_HOME=${RENDER_OUT}/none)
endforeach()

# A saved preset in the user's folder, found by name, sounds exactly like what was saved.
set(USER_DATA ${RENDER_OUT}/xdg)
file(MAKE_DIRECTORY ${USER_DATA}/vantor/presets)
set(SAVED_SOUND --preset pluck --set voice1_vcf_res=0.61 --set voice1_env3_decay=0.123456)
vantor_render_test(save_preset ARGS ${SAVED_SOUND} --save-preset ${USER_DATA}/vantor/presets/saved.json)
vantor_render_test(saved_direct ARGS ${CLIP} -o ${RENDER_OUT}/saved_direct.wav --seed 5 --tail 1 ${SAVED_SOUND})
vantor_render_test(saved_by_name ARGS ${CLIP} -o ${RENDER_OUT}/saved_by_name.wav --seed 5 --tail 1
  --preset saved REQUIRES "render_save_preset;render_saved_direct")
set_tests_properties(tools.render.saved_by_name PROPERTIES ENVIRONMENT XDG_DATA_HOME=${USER_DATA})
add_test(NAME tools.render.saved_by_name.same COMMAND ${CMAKE_COMMAND} -E compare_files
  ${RENDER_OUT}/saved_direct.wav ${RENDER_OUT}/saved_by_name.wav)
set_tests_properties(tools.render.saved_by_name.same PROPERTIES FIXTURES_REQUIRED render_saved_by_name)

vantor_render_test(save_state ARGS --preset pluck --set master_volume=0.4
  --save-state ${RENDER_OUT}/pluck.state)
vantor_render_test(load_state ARGS ${CLIP} -o ${RENDER_OUT}/state.wav --tail 0
  --load-state ${RENDER_OUT}/pluck.state REQUIRES render_save_state
  CHECK ${RENDER_OUT}/state.wav --frames 66150)

add_test(NAME tools.render.list_params COMMAND ${RENDER} --list-params)
set_tests_properties(tools.render.list_params PROPERTIES
  PASS_REGULAR_EXPRESSION "voice12_vcf_cutoff")

add_test(NAME tools.render.make_truncated
  COMMAND sh -c "head -c 40 '${CLIP}' > '${RENDER_OUT}/truncated.mid'")
set_tests_properties(tools.render.make_truncated PROPERTIES
  FIXTURES_REQUIRED render_clip FIXTURES_SETUP render_truncated)
vantor_render_failure(truncated_midi "truncated" ${RENDER_OUT}/bad1.wav
  ${RENDER_OUT}/truncated.mid -o ${RENDER_OUT}/bad1.wav)
set_tests_properties(tools.render.fails.truncated_midi PROPERTIES
  FIXTURES_REQUIRED "render_clip;render_truncated")
# One delta of 0x0FFFFFFF ticks at one tick per quarter note: years of audio.
vantor_render_failure(too_long "lasts [0-9]+ s .*--max-length [0-9]+ or more" ${RENDER_OUT}/long.wav
  ${CMAKE_CURRENT_LIST_DIR}/data/long_delta.mid -o ${RENDER_OUT}/long.wav)
set_tests_properties(tools.render.fails.too_long PROPERTIES TIMEOUT 60)
vantor_render_failure(longer_than_limit "lasts 2 s .*--max-length 1 s.*--max-length 2 or more"
  ${RENDER_OUT}/long2.wav ${CLIP} -o ${RENDER_OUT}/long2.wav --max-length 1)
vantor_render_failure(missing_engine "cannot load the engine" ${RENDER_OUT}/bad2.wav
  ${CLIP} -o ${RENDER_OUT}/bad2.wav --engine ${RENDER_OUT}/no-such-engine.so)
vantor_render_failure(unknown_parameter "closest matches: voice1_vcf_cutoff" ${RENDER_OUT}/bad3.wav
  ${CLIP} -o ${RENDER_OUT}/bad3.wav --set voice1_vcf_cutof=0.5)
vantor_render_failure(value_out_of_range "outside 0..1" ${RENDER_OUT}/bad4.wav
  ${CLIP} -o ${RENDER_OUT}/bad4.wav --set master_volume=1.5)
vantor_render_failure(unknown_preset "unknown preset 'nosuch'.*init.*looked in:.*share/vantor/presets"
  ${RENDER_OUT}/bad5.wav ${CLIP} -o ${RENDER_OUT}/bad5.wav --preset nosuch)
vantor_render_failure(unwritable_output "cannot write" ${RENDER_OUT}/no-such-folder/out.wav
  ${CLIP} -o ${RENDER_OUT}/no-such-folder/out.wav)

# The engine finds its files beside itself, so nothing but the list reaches standard output.
set_tests_properties(tools.render.list_params PROPERTIES FAIL_REGULAR_EXPRESSION "not found")
add_test(NAME tools.render.list_presets COMMAND ${RENDER} --list-presets)
set_tests_properties(tools.render.list_presets PROPERTIES
  PASS_REGULAR_EXPRESSION "\ninit  +Init  +One sawtooth[^\n]*\n")
add_test(NAME tools.listparams.beside_engine COMMAND $<TARGET_FILE:vantor-listparams>)
set_tests_properties(tools.listparams.beside_engine PROPERTIES
  PASS_REGULAR_EXPRESSION "voice12_vcf_cutoff" FAIL_REGULAR_EXPRESSION "not found")

# Piping: the audio alone on standard output, MIDI from standard input.
add_test(NAME tools.render.pipe_wav_into_sox COMMAND sh -c
  "'${RENDER}' - -o - --tail 0 < '${CLIP}' | sox -t wav - -b 16 '${RENDER_OUT}/piped.wav' && \
   '${WAVCHECK}' '${RENDER_OUT}/piped.wav' --frames 66150 --format 16 --min-peak 0.01")
add_test(NAME tools.render.pipe_raw_into_sox COMMAND sh -c
  "'${RENDER}' '${CLIP}' -o - --type raw --format 16 --tail 0 -q | \
   sox -t raw -r 44100 -e signed -b 16 -c 2 - '${RENDER_OUT}/piped_raw.wav' && \
   '${WAVCHECK}' '${RENDER_OUT}/piped_raw.wav' --frames 66150 --format 16 --min-peak 0.01")
set_tests_properties(tools.render.pipe_wav_into_sox tools.render.pipe_raw_into_sox PROPERTIES
  FIXTURES_REQUIRED render_clip)

# FLAC is lossless: read back through libsndfile it holds the WAV's samples.
vantor_render_test(flac ARGS ${CLIP} -o ${RENDER_OUT}/seeded.flac --seed 3 --tail 0 ${NOISE}
  CHECK ${RENDER_OUT}/seeded.flac --type flac --frames 66150 --format 24)
vantor_render_test(flac_wav ARGS ${CLIP} -o ${RENDER_OUT}/seeded.wav --seed 3 --tail 0 ${NOISE})
add_test(NAME tools.render.flac_round_trip COMMAND ${WAVCHECK} ${RENDER_OUT}/seeded.flac
  --type flac --same-as ${RENDER_OUT}/seeded.wav)
set_tests_properties(tools.render.flac_round_trip PROPERTIES
  FIXTURES_REQUIRED "render_flac;render_flac_wav")
vantor_render_test(ogg ARGS ${CLIP} -o ${RENDER_OUT}/clip.ogg --tail 0
  CHECK ${RENDER_OUT}/clip.ogg --type ogg --min-peak 0.01)

# Several inputs, each to its own file in a folder, as --type says.
set(PAN_MID ${CMAKE_CURRENT_LIST_DIR}/data/pan_left_program1.mid)
vantor_render_test(several ARGS ${CLIP} ${PAN_MID} -o ${RENDER_OUT}/several/ --type flac --tail 0)
foreach(name clip pan_left_program1)
  add_test(NAME tools.render.several.${name} COMMAND ${WAVCHECK}
    ${RENDER_OUT}/several/${name}.flac --type flac --min-peak 0.01)
  set_tests_properties(tools.render.several.${name} PROPERTIES FIXTURES_REQUIRED render_several)
endforeach()

# Levels after rendering: normalised to -6 dBFS; the summary shows both levels.
vantor_render_test(normalize ARGS ${CLIP} -o ${RENDER_OUT}/normalized.wav --format float
  --tail 0 --normalize=-6
  CHECK ${RENDER_OUT}/normalized.wav --min-peak 0.50118 --max-peak 0.50119)
add_test(NAME tools.render.gain_summary COMMAND ${RENDER} ${CLIP} -o ${RENDER_OUT}/gain.wav
  --tail 0 --gain 6)
set_tests_properties(tools.render.gain_summary PROPERTIES FIXTURES_REQUIRED render_clip
  PASS_REGULAR_EXPRESSION "Peak +-[0-9.]+ dBFS rendered, -[0-9.]+ dBFS written \\(\\+6.0 dB\\)\nSpeed +[0-9.]+x real time")

# Channels, pan and program changes: one note on channel 1 after program 1 and CC 10 = 0.
vantor_render_test(pan_left ARGS ${PAN_MID} -o ${RENDER_OUT}/pan_left.wav --tail 0
  CHECK ${RENDER_OUT}/pan_left.wav --min-peak 0.01 --max-right-peak 0.001)
vantor_render_test(other_channels ARGS ${PAN_MID} -o ${RENDER_OUT}/other_channels.wav --tail 0
  --channels 2-16 CHECK ${RENDER_OUT}/other_channels.wav --frames 22050 --max-peak 0.001)
vantor_render_test(program_table ARGS ${PAN_MID} -o ${RENDER_OUT}/program.wav --tail 0
  --programs ${CMAKE_CURRENT_LIST_DIR}/data/programs.txt
  CHECK ${RENDER_OUT}/program.wav --frames 22050 --max-peak 0.0)

add_test(NAME tools.render.version COMMAND ${RENDER} --version)
set_tests_properties(tools.render.version PROPERTIES
  PASS_REGULAR_EXPRESSION "^vantor-render ${PROJECT_VERSION}\n$")
# Command-line errors exit with 2, with a short message.
vantor_render_failure(rate_zero "^--rate: the sample rate must be from 8000 to 768000 Hz, not 0\n"
  ${RENDER_OUT}/rate0.wav CODE=2 ${CLIP} -o ${RENDER_OUT}/rate0.wav -r 0)
vantor_render_failure(unknown_option "--no-such" ${RENDER_OUT}/opt.wav CODE=2
  ${CLIP} -o ${RENDER_OUT}/opt.wav --no-such)
vantor_render_failure(two_inputs_one_file "several inputs need -o FOLDER" ${RENDER_OUT}/one.wav
  CODE=2 ${CLIP} ${CLIP} -o ${RENDER_OUT}/one.wav)
vantor_render_failure(mp3 "cannot tell the file type of .*clip.mp3" ${RENDER_OUT}/clip.mp3
  CODE=2 ${CLIP} -o ${RENDER_OUT}/clip.mp3)
vantor_render_failure(opus_rate "Opus is written at .* not 44100 Hz" ${RENDER_OUT}/clip.opus
  ${CLIP} -o ${RENDER_OUT}/clip.opus)
vantor_render_failure(flac_float "FLAC holds 16 or 24-bit samples" ${RENDER_OUT}/float.flac
  ${CLIP} -o ${RENDER_OUT}/float.flac --format float)

# The README's option table lists exactly the options of --help.
add_test(NAME tools.render.readme_options COMMAND ${CMAKE_COMMAND} -DRENDER=${RENDER}
  -DREADME=${CMAKE_SOURCE_DIR}/README.md -P ${CMAKE_CURRENT_LIST_DIR}/readme_options.cmake)
