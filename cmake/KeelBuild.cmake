# Language level, warnings, sanitizers, and what is special about a library that lives in a foreign process.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()

# Where ccache is installed, work trees and clones share what they compile: paths count from the top of the tree.
find_program(KEEL_CCACHE ccache)
if(KEEL_CCACHE)
  foreach(language C CXX)
    if(NOT CMAKE_${language}_COMPILER_LAUNCHER)
      set(CMAKE_${language}_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env "CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}"
        CCACHE_NOHASHDIR=1 "CCACHE_SLOPPINESS=pch_defines,time_macros" "${KEEL_CCACHE}")
    endif()
  endforeach()
endif()

find_package(Threads REQUIRED)

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
add_compile_definitions(_FILE_OFFSET_BITS=64)
configure_file("${CMAKE_CURRENT_LIST_DIR}/keel_paths.h.in" "${CMAKE_BINARY_DIR}/generated/keel_paths.h" @ONLY)
include_directories("${CMAKE_SOURCE_DIR}" "${CMAKE_BINARY_DIR}/generated")

if(KEEL_SANITIZE)
  add_compile_options(-fsanitize=${KEEL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  # The check of virtual tables probes memory through a pipe that it opens itself: in a host without free descriptors it
  # takes every object for a bad one, and in a host with a closed stream the pipe becomes that stream.
  add_compile_options(-fno-sanitize=vptr)
  add_link_options(-fsanitize=${KEEL_SANITIZE})
endif()
if(KEEL_FUZZ)
  # So that the fuzzer sees the branches of the code under test, not only those of its driver.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(KEEL_COVERAGE)
  add_compile_options(--coverage)
  add_link_options(--coverage)
endif()

# The C library that the products are linked against: scripts/install-sysroot. What a sanitizer watches has to be the
# machine's own.
set(KEEL_SYSROOT "${CMAKE_SOURCE_DIR}/build/sysroot")
if(KEEL_SANITIZE OR KEEL_COVERAGE OR NOT EXISTS "${KEEL_SYSROOT}/complete")
  set(KEEL_SYSROOT "")
endif()

# keel_old_libc(TARGET [MATH]): lets a product load where the C library is old. MATH: it uses exp, log or pow.
function(keel_old_libc target)
  if(NOT KEEL_SYSROOT)
    return()
  endif()
  target_sources(${target} PRIVATE $<TARGET_OBJECTS:keel_libc>)
  if(ARGN STREQUAL "MATH")
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:keel_libc_math>)
  endif()
  set(libraries "${KEEL_SYSROOT}/usr/lib/x86_64-linux-gnu")
  # The names of functions that moved into the C library since then are in these three.
  target_link_options(${target} PRIVATE "LINKER:--sysroot=${KEEL_SYSROOT}" "-B${libraries}/" "-L${libraries}")
  target_link_libraries(${target} PRIVATE -Wl,--as-needed -lpthread -ldl -lm)
endfunction()

# keel_component(VARIABLE DIRECTORY): the package that a directory of the installation belongs to.
function(keel_component variable directory)
  if(directory MATCHES "^oracle/")
    set(${variable} keel-oracle PARENT_SCOPE)
  else()
    set(${variable} arca-tools PARENT_SCOPE)
  endif()
endfunction()

# keel_foreign_library(TARGET OUTPUT_NAME DIRECTORY EXPORTS [MATH])
# Makes a shared library fit to be loaded by a database: it exports what the file EXPORTS lists and nothing
# else, and brings its own C++ runtime, hidden, so that an older one in the host does no harm. A sanitizer
# needs the shared runtime to see its own interceptors.
function(keel_foreign_library target output directory exports)
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME "${output}"
    PREFIX ""
    LIBRARY_OUTPUT_DIRECTORY "${KEEL_STAGE}/${directory}"
    LINK_DEPENDS "${exports}"
    BUILD_WITH_INSTALL_RPATH ON)
  target_link_options(${target} PRIVATE
    "LINKER:--version-script=${exports}" "LINKER:--exclude-libs,ALL" "LINKER:-z,relro,-z,now"
    "LINKER:--gc-sections")
  if(NOT KEEL_SANITIZE)
    target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc "LINKER:-z,defs")
  endif()
  keel_old_libc(${target} ${ARGN})
  keel_component(component "${directory}")
  install(TARGETS ${target} LIBRARY DESTINATION "${KEEL_CLIENT_ROOT}/${directory}" COMPONENT ${component})
endfunction()

# keel_program(TARGET COMPONENT [MATH]): a program people run, laid out beside the libraries. It writes its pages of the
# manual and its completions for shells itself.
function(keel_program target component)
  if(NOT KEEL_SANITIZE)
    target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc)
  endif()
  keel_old_libc(${target} ${ARGN})
  if(KEEL_SYSROOT)
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:keel_libc_random>)
  endif()
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${KEEL_STAGE}/bin")
  set(share "${CMAKE_BINARY_DIR}/share/${target}")
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND "${CMAKE_COMMAND}" -E rm -rf "${share}"
    COMMAND "$<TARGET_FILE:${target}>" --generate "${share}")
  install(DIRECTORY "${share}/" DESTINATION /usr/share COMPONENT ${component})
  install(TARGETS ${target} RUNTIME DESTINATION "${KEEL_CLIENT_ROOT}/bin" COMPONENT ${component})
endfunction()

# keel_stage_file(SOURCE DIRECTORY [NAME]): a file of the installation that is not built.
function(keel_stage_file source directory)
  cmake_path(GET source FILENAME name)
  if(ARGC GREATER 2)
    set(name "${ARGV2}")
  endif()
  configure_file("${source}" "${KEEL_STAGE}/${directory}/${name}" COPYONLY)
  keel_component(component "${directory}")
  install(FILES "${source}" DESTINATION "${KEEL_CLIENT_ROOT}/${directory}" RENAME "${name}"
    COMPONENT ${component})
endfunction()
