# SPDX-License-Identifier: Apache-2.0

# wlhid_add_helper_bundle(TARGET PROGRAM [DESTINATION DIRECTORY])
#
# Gives the program of the target PROGRAM a bundle: the router, and the daemon that installs it for a user's root, in Contents/
# beside the program, where the library looks for them. With DESTINATION, they are also installed in DIRECTORY/Contents/; it is
# where PROGRAM is installed. For a program in NAME.app/Contents/MacOS/ it is NAME.app/Contents/ instead.
cmake_minimum_required(VERSION 3.25)

function(wlhid_add_helper_bundle)
  cmake_parse_arguments(A "" "TARGET;DESTINATION" "" ${ARGN})
  if(NOT TARGET "${A_TARGET}" OR A_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "wlhid_add_helper_bundle: pass TARGET with a program of this project, and nothing but DESTINATION besides")
  endif()
  get_property(router GLOBAL PROPERTY WLHID_ROUTER_IMAGE)
  get_property(daemon GLOBAL PROPERTY WLHID_JOB_DAEMON)
  get_property(built_by GLOBAL PROPERTY WLHID_HELPER_TARGETS)
  if(NOT router)
    message(FATAL_ERROR "wlhid_add_helper_bundle: the router is not built here; set WLHID_ROUTER=ON")
  elseif(NOT built_by AND NOT (EXISTS "${router}" AND EXISTS "${daemon}"))
    message(FATAL_ERROR "wlhid_add_helper_bundle: there is no router at ${router}, or no ${daemon}; install the router "
                        "(on Debian: the package wlhid-router), or build it")
  endif()
  set(folder "$<TARGET_FILE_DIR:${A_TARGET}>")
  set(above "$<PATH:GET_PARENT_PATH,${folder}>")
  string(CONCAT is_in_application "$<AND:$<STREQUAL:$<PATH:GET_FILENAME,${folder}>,MacOS>,"
         "$<STREQUAL:$<PATH:GET_FILENAME,${above}>,Contents>,"
         "$<STREQUAL:$<PATH:GET_EXTENSION,LAST_ONLY,$<PATH:GET_PARENT_PATH,${above}>>,.app>>")
  set(contents "$<IF:${is_in_application},${above},${folder}/Contents>")
  add_custom_target(${A_TARGET}_helper_bundle
    COMMAND "${CMAKE_COMMAND}" -E make_directory "${contents}/Library/LaunchServices" "${contents}/Helpers"
    COMMAND "${CMAKE_COMMAND}" -E copy_if_different "${router}" "${contents}/Library/LaunchServices"
    COMMAND "${CMAKE_COMMAND}" -E copy_if_different "${daemon}" "${contents}/Helpers"
    DEPENDS ${built_by} COMMENT "Putting the router into the bundle of ${A_TARGET}" VERBATIM)
  add_dependencies(${A_TARGET} ${A_TARGET}_helper_bundle)
  if(A_DESTINATION)
    string(REGEX REPLACE "(\\.app)/Contents/MacOS/?$" "\\1" bundle "${A_DESTINATION}")
    install(FILES "${router}" DESTINATION "${bundle}/Contents/Library/LaunchServices")
    install(PROGRAMS "${daemon}" DESTINATION "${bundle}/Contents/Helpers")
  endif()
endfunction()
