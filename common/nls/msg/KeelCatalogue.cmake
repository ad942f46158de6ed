# keel_catalogue(TARGET ENGLISH SOURCE FILE): compiles the message source SOURCE, checked against the source
# ENGLISH (which may be the same), to FILE below the installation, as in oracle/bin64/EN_US/velo.cat. TARGET
# names the step. Nothing but the build's tools is needed on the machine that runs it.
find_program(KEEL_GENCAT gencat REQUIRED)

function(keel_catalogue target english source file)
  set(input "${CMAKE_CURRENT_BINARY_DIR}/${target}.gencat")
  set(output "${KEEL_STAGE}/${file}")
  cmake_path(GET file PARENT_PATH directory)
  file(MAKE_DIRECTORY "${KEEL_STAGE}/${directory}")
  set(script "${CMAKE_SOURCE_DIR}/common/nls/msg/gencat.cmake")
  add_custom_command(OUTPUT "${output}"
    COMMAND keel_msgc catalogue "${english}" "${source}" "${input}"
    COMMAND "${CMAKE_COMMAND}" "-DGENCAT=${KEEL_GENCAT}" "-DINPUT=${input}" "-DOUTPUT=${output}" -P "${script}"
    DEPENDS keel_msgc "${english}" "${source}" "${script}"
    COMMENT "Compiling messages to ${file}"
    VERBATIM)
  add_custom_target(${target} ALL DEPENDS "${output}")
  install(FILES "${output}" DESTINATION "${KEEL_CLIENT_ROOT}/${directory}")
endfunction()
