# One folder layout for the build tree and every installed tree: a build folder
# anywhere holds bin/, lib/vantor/ and share/ exactly as `cmake --install`
# writes them below the prefix, so programs find their files the same way in
# both. Host programs locate the engine and the presets relative to their own
# folder (a relocated prefix keeps working).
include_guard(GLOBAL)

set(VANTOR_BIN_SUBDIR bin)
set(VANTOR_ENGINE_SUBDIR lib/vantor)          # engine, its description and log.conf together
set(VANTOR_PRESET_SUBDIR share/vantor/presets)
set(VANTOR_DOC_SUBDIR share/doc/vantor)

set(VANTOR_BIN_DIR ${CMAKE_BINARY_DIR}/${VANTOR_BIN_SUBDIR})
set(VANTOR_ENGINE_DIR ${CMAKE_BINARY_DIR}/${VANTOR_ENGINE_SUBDIR})
set(VANTOR_PRESET_DIR ${CMAKE_BINARY_DIR}/${VANTOR_PRESET_SUBDIR})
set(VANTOR_DOC_DIR ${CMAKE_BINARY_DIR}/${VANTOR_DOC_SUBDIR})

# The data files the engine looks up next to itself.
set(VANTOR_ENGINE_DATA
    ${CMAKE_SOURCE_DIR}/data/resources/vantorengine.xml
    ${CMAKE_SOURCE_DIR}/basictools/logger/log.conf)

# vantor_stage(NAME <target> SUBDIR <dir below the build folder> FILES ... [INSTALL])
# Copies FILES into the build folder at build time (never into the source
# tree) through the target NAME; with INSTALL they go to the same SUBDIR below
# the install prefix.
function(vantor_stage)
  cmake_parse_arguments(S "INSTALL" "NAME;SUBDIR" "FILES" ${ARGN})
  set(outputs)
  foreach(file ${S_FILES})
    get_filename_component(base ${file} NAME)
    set(out ${CMAKE_BINARY_DIR}/${S_SUBDIR}/${base})
    add_custom_command(OUTPUT ${out}
      COMMAND ${CMAKE_COMMAND} -E copy_if_different ${file} ${out}
      DEPENDS ${file} VERBATIM)
    list(APPEND outputs ${out})
  endforeach()
  add_custom_target(${S_NAME} ALL DEPENDS ${outputs})
  if(S_INSTALL)
    install(FILES ${S_FILES} DESTINATION ${S_SUBDIR})
  endif()
endfunction()

# vantor_program(<target>): a host program in bin/, installed with the others.
# It learns the engine and preset folders relative to its own folder through
# <vantor/layout.h>.
function(vantor_program target)
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${VANTOR_BIN_DIR})
  target_link_libraries(${target} PRIVATE vantor_layout)
  install(TARGETS ${target} RUNTIME DESTINATION ${VANTOR_BIN_SUBDIR})
endfunction()

# vantor_engine_module(<target>): a loadable engine in lib/vantor/ with its
# data files beside it, in the build folder and installed.
function(vantor_engine_module target)
  set_target_properties(${target} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${VANTOR_ENGINE_DIR})
  vantor_stage(NAME ${target}_data SUBDIR ${VANTOR_ENGINE_SUBDIR} FILES ${VANTOR_ENGINE_DATA} INSTALL)
  add_dependencies(${target} ${target}_data)
  install(TARGETS ${target} LIBRARY DESTINATION ${VANTOR_ENGINE_SUBDIR})
endfunction()

# Folders of the layout as seen from bin/, for the host programs.
file(RELATIVE_PATH VANTOR_ENGINE_FROM_BIN ${VANTOR_BIN_DIR} ${VANTOR_ENGINE_DIR})
file(RELATIVE_PATH VANTOR_PRESETS_FROM_BIN ${VANTOR_BIN_DIR} ${VANTOR_PRESET_DIR})
add_library(vantor_layout INTERFACE)
target_include_directories(vantor_layout INTERFACE ${CMAKE_SOURCE_DIR}/tools/common)
target_compile_definitions(vantor_layout INTERFACE
  VANTOR_ENGINE_FROM_BIN="${VANTOR_ENGINE_FROM_BIN}"
  VANTOR_PRESETS_FROM_BIN="${VANTOR_PRESETS_FROM_BIN}")
