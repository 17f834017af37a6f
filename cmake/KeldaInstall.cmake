# Where things are installed, and in which of four parts ("components"), of which packages are made:
# runtime, development, tools, documentation. What is installed may be moved as a whole.

include(GNUInstallDirs)
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR} OR IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
  message(FATAL_ERROR "CMAKE_INSTALL_LIBDIR and CMAKE_INSTALL_INCLUDEDIR are named within the prefix")
endif()

# The headers' root: a program's #include lines are those of this tree.
set(KELDA_INSTALL_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/kelda)
set(KELDA_INSTALL_CMAKE ${CMAKE_INSTALL_LIBDIR}/cmake/KeldaAudio)
set(KELDA_INSTALL_PKGCONFIG ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Libraries and programs find the libraries of their own installation. For a folder where the system
# looks anyhow, packagers say CMAKE_SKIP_INSTALL_RPATH.
file(RELATIVE_PATH to_libraries /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
set(CMAKE_INSTALL_RPATH $ORIGIN/${to_libraries})

# kelda_install_library(TARGET LINK...): LINK tells what becomes of the name without a version, by which
# linkers ask for a library: NAMELINK_COMPONENT development, or NAMELINK_SKIP.
function(kelda_install_library target)
  set_target_properties(${target} PROPERTIES INSTALL_RPATH $ORIGIN)
  install(TARGETS ${target} EXPORT KeldaAudio
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime ${ARGN}
    INCLUDES DESTINATION ${KELDA_INSTALL_HEADERS})
endfunction()

# kelda_public_headers(RESULT ROOT): what a program may include, named as it does: the headers below
# ROOT that offer something (KELDA_EXPORT), and those that they include.
function(kelda_public_headers result root)
  file(GLOB_RECURSE left CONFIGURE_DEPENDS RELATIVE ${root} ${root}/*.h)
  list(TRANSFORM left PREPEND "seed:")
  set(headers "")
  while(left)
    list(POP_FRONT left header)
    if(header MATCHES "^seed:(.*)")
      set(header ${CMAKE_MATCH_1})
      file(STRINGS ${root}/${header} offers REGEX KELDA_EXPORT LIMIT_COUNT 1)
      if(NOT offers)
        continue()
      endif()
    endif()
    if(NOT header IN_LIST headers)
      list(APPEND headers ${header})
      file(STRINGS ${root}/${header} includes REGEX "^#include \"")
      list(TRANSFORM includes REPLACE "^#include \"([^\"]*)\".*" "\\1")
      list(APPEND left ${includes})
    endif()
  endwhile()
  set(${result} ${headers} PARENT_SCOPE)
endfunction()

# kelda_install_headers(ROOT HEADER...)
function(kelda_install_headers root)
  foreach(header ${ARGN})
    cmake_path(GET header PARENT_PATH folder)
    install(FILES ${root}/${header} DESTINATION ${KELDA_INSTALL_HEADERS}/${folder} COMPONENT development)
  endforeach()
endfunction()

# kelda_pkg_config(NAME DESCRIPTION [REQUIRES]): kelda-NAME.pc for the library libkelda_NAME.
function(kelda_pkg_config name description)
  set(requires ${ARGN})
  file(RELATIVE_PATH to_prefix /prefix/${KELDA_INSTALL_PKGCONFIG} /prefix)
  cmake_path(SET to_prefix NORMALIZE "${to_prefix}/.")
  set(file ${PROJECT_BINARY_DIR}/packaging/kelda-${name}.pc)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/kelda.pc.in ${file} @ONLY)
  install(FILES ${file} DESTINATION ${KELDA_INSTALL_PKGCONFIG} COMPONENT development)
endfunction()
