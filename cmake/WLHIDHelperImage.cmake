# SPDX-License-Identifier: Apache-2.0

# wlhid_helper_image(TARGET PROGRAM_TARGET LABEL L [VERSION V] [SERVICES S…] OUTPUT FILE)
#
# Makes TARGET build FILE, a helper image that contains the program of PROGRAM_TARGET under the label L. VERSION
# defaults to the project's version, SERVICES to one service with the label's name.
function(wlhid_helper_image target program)
  cmake_parse_arguments(A "" "LABEL;VERSION;OUTPUT" "SERVICES" ${ARGN})
  if(NOT A_LABEL OR NOT A_OUTPUT)
    message(FATAL_ERROR "wlhid_helper_image(${target}): LABEL and OUTPUT are required")
  endif()
  if(NOT A_VERSION)
    set(A_VERSION "${PROJECT_VERSION}")
  endif()
  set(services)
  foreach(service ${A_SERVICES})
    list(APPEND services --service "${service}")
  endforeach()
  set(executable "$<TARGET_FILE:${program}>")
  set(strip)
  if(WLHID_STRIP_HELPERS)
    set(strip COMMAND "${CMAKE_STRIP}" --strip-unneeded -o "${A_OUTPUT}.program" "${executable}")
    set(executable "${A_OUTPUT}.program")
  endif()
  add_custom_command(OUTPUT "${A_OUTPUT}"
    ${strip}
    COMMAND wlhid-mkimage --label "${A_LABEL}" --version "${A_VERSION}" ${services}
            --program "${executable}" --output "${A_OUTPUT}"
    DEPENDS wlhid-mkimage ${program}
    COMMENT "Making the helper image ${A_LABEL} ${A_VERSION}" VERBATIM)
  add_custom_target(${target} ALL DEPENDS "${A_OUTPUT}")
endfunction()
