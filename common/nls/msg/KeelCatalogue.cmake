# keel_catalogues(TARGET ROOT NAME DIRECTORY): compiles ROOT/<language>/NAME.msg of every language to
# DIRECTORY/<language>/NAME.cat below the installation, as in oracle/bin64/EN_US/velo.cat. Each language is checked
# against the English source and fails the build when it differs in more than its words. TARGET names the step.
# Nothing but the build's tools is needed on the machine that runs it.
find_program(KEEL_GENCAT gencat REQUIRED)

function(keel_catalogues target root name directory)
  # The directories that the table of languages in common/nls/nlslanguage.cpp names.
  set(languages CS_CZ DE_DE EN_US ES_ES FR_FR HU_HU IT_IT JA_JP KO_KR PL_PL PT_BR RU_RU ZH_CN)
  keel_component(component "${directory}")
  set(english "${root}/EN_US/${name}.msg")
  set(script "${CMAKE_SOURCE_DIR}/common/nls/msg/gencat.cmake")
  foreach(language IN LISTS languages)
    set(source "${root}/${language}/${name}.msg")
    set(input "${CMAKE_CURRENT_BINARY_DIR}/${target}_${language}.gencat")
    set(output "${KEEL_STAGE}/${directory}/${language}/${name}.cat")
    file(MAKE_DIRECTORY "${KEEL_STAGE}/${directory}/${language}")
    add_custom_command(OUTPUT "${output}"
      COMMAND keel_msgc catalogue "${english}" "${source}" "${input}"
      COMMAND "${CMAKE_COMMAND}" "-DGENCAT=${KEEL_GENCAT}" "-DINPUT=${input}" "-DOUTPUT=${output}"
        -P "${script}"
      DEPENDS keel_msgc "${english}" "${source}" "${script}"
      COMMENT "Compiling messages to ${directory}/${language}/${name}.cat"
      VERBATIM)
    list(APPEND outputs "${output}")
    install(FILES "${output}" DESTINATION "${KEEL_CLIENT_ROOT}/${directory}/${language}"
      COMPONENT ${component})
  endforeach()
  add_custom_target(${target} ALL DEPENDS ${outputs})
endfunction()
