# What every target of this project shares: language level, warnings, sanitizers,
# output folders, and the way a shared library of ours is made.

set(CMAKE_C_STANDARD 99)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

if(NOT CMAKE_BUILD_TYPE) # what is measured
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

set(KELDA_SANITIZERS "" CACHE STRING "Sanitizers for every target, e.g. address,undefined")
option(KELDA_COVERAGE "Instrument every target for gcov" OFF)
set(KELDA_PROGRAM_OPTIONS "" CACHE STRING "How programs and tests are compiled, but not the libraries")
option(KELDA_WARNINGS_AS_ERRORS "Fail the build on any warning" ON)

# A cache of compilations, where a machine has one, that serves every checkout of this project, and
# precompiled headers. It can't serve the notes that gcov needs: they name the folder.
find_program(KELDA_CCACHE ccache)
if(KELDA_CCACHE AND NOT KELDA_COVERAGE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
    CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1
    CCACHE_SLOPPINESS=pch_defines,time_macros ${KELDA_CCACHE})
endif()

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(nlohmann_json REQUIRED)
pkg_check_modules(log4cplus REQUIRED IMPORTED_TARGET log4cplus)
pkg_check_modules(alsa REQUIRED IMPORTED_TARGET alsa)
pkg_check_modules(hwy REQUIRED IMPORTED_TARGET libhwy)
pkg_check_modules(gstreamer REQUIRED IMPORTED_TARGET gstreamer-app-1.0)

# Assertions are part of the interface and abort in every build type.
foreach(type RELEASE RELWITHDEBINFO MINSIZEREL)
  string(REPLACE "-DNDEBUG" "" CMAKE_CXX_FLAGS_${type} "${CMAKE_CXX_FLAGS_${type}}")
endforeach()

# For what need not be fast, as tests and command lines: optimising it would take most of a build's time.
# It is what each compiler is quickest with.
set(KELDA_QUICK "")
if(KELDA_SANITIZERS OR NOT CMAKE_BUILD_TYPE STREQUAL Debug)
  set(KELDA_QUICK $<IF:$<CXX_COMPILER_ID:Clang>,-O0,-Og>)
endif()

add_library(kelda_options INTERFACE)
target_compile_options(kelda_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${KELDA_WARNINGS_AS_ERRORS}>:-Werror>
  $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wthread-safety>
  -ffp-contract=off # results are the same to the last bit, whether or not a machine has fused operations
  -UNDEBUG)
if(KELDA_SANITIZERS)
  target_compile_options(kelda_options INTERFACE
    -fsanitize=${KELDA_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(kelda_options INTERFACE -fsanitize=${KELDA_SANITIZERS})
endif()
if(KELDA_BUILD_FUZZERS)
  target_compile_options(kelda_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(KELDA_COVERAGE)
  target_compile_options(kelda_options INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(kelda_options INTERFACE --coverage)
endif()

# kelda_precompiled(NAME HEADERS...): headers that many sources read, all with the same options, are read
# once. kelda_use_precompiled(NAME TARGETS...) are the targets of these sources, each of which still includes
# what it needs: packages, and the preset "coverage", are built without.
set(KELDA_CACHEABLE -fpch-preprocess) # as ccache asks for it
if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
  set(KELDA_CACHEABLE -Xclang -fno-pch-timestamp)
endif()
function(kelda_precompiled name)
  set(source ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
  file(CONFIGURE OUTPUT ${source} CONTENT "")
  add_library(${name} OBJECT ${source})
  target_link_libraries(${name} PRIVATE kelda_options)
  target_compile_options(${name} PRIVATE ${KELDA_CACHEABLE})
  target_precompile_headers(${name} PRIVATE ${ARGN})
endfunction()
function(kelda_use_precompiled name)
  foreach(target ${ARGN})
    target_compile_options(${target} PRIVATE ${KELDA_CACHEABLE})
    target_precompile_headers(${target} REUSE_FROM ${name})
  endforeach()
endfunction()

# kelda_quick(SOURCES...) are compiled with KELDA_QUICK.
function(kelda_quick)
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "${KELDA_QUICK}" SKIP_PRECOMPILE_HEADERS ON)
endfunction()

# kelda_library(NAME [FOLDER folder] [MAP file] [OUTPUT name VERSION version]
#               SOURCES ... PUBLIC ... PRIVATE ...)
#
# The shared library libkelda_NAME.so, or libOUTPUT.so.VERSION, with the alias target kelda::NAME, from
# sources in a folder (NAME). It exports what its headers mark with KELDA_EXPORT and its map file
# (exports.map) lets through; the map keeps back the standard library's template instantiations, which
# visibility flags alone do not hide.
function(kelda_library name)
  cmake_parse_arguments(arg "" "FOLDER;MAP;OUTPUT;VERSION" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  foreach(default "FOLDER ${name}" "MAP exports.map" "OUTPUT kelda_${name}")
    separate_arguments(default)
    list(POP_FRONT default option)
    if(NOT arg_${option})
      set(arg_${option} ${default})
    endif()
  endforeach()
  if(arg_VERSION)
    set(version ${arg_VERSION})
    set(soversion ${arg_VERSION})
    # Other projects have libraries of these names without a version; CMake's packages, and linkers by
    # -l:libOUTPUT.so.VERSION, do without.
    set(link NAMELINK_SKIP)
  else()
    set(version ${PROJECT_VERSION})
    set(soversion ${PROJECT_VERSION_MAJOR})
    set(link NAMELINK_COMPONENT development)
  endif()
  set(target kelda_${name})
  set(map ${CMAKE_CURRENT_SOURCE_DIR}/${arg_FOLDER}/${arg_MAP})
  list(TRANSFORM arg_SOURCES PREPEND ${arg_FOLDER}/)
  add_library(${target} SHARED ${arg_SOURCES})
  add_library(kelda::${name} ALIAS ${target})
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>)
  target_link_libraries(${target} PUBLIC ${arg_PUBLIC} PRIVATE kelda_options ${arg_PRIVATE})
  # A library of ours may call its own functions directly, inlined too.
  target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  target_link_options(${target} PRIVATE LINKER:--version-script=${map})
  if(NOT KELDA_SANITIZERS) # their runtime is in the program
    target_link_options(${target} PRIVATE LINKER:--no-undefined)
  endif()
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME ${arg_OUTPUT} VERSION ${version} SOVERSION ${soversion} LINK_DEPENDS ${map}
    EXPORT_NAME ${name})
  kelda_install_library(${target} ${link})
endfunction()
