# SPDX-License-Identifier: Apache-2.0

# What is installed where (`cmake --install`, and the Debian packages). The places of the router are those that
# platform/services/SystemPlaces.cpp looks in, so they are not a choice; the others follow GNUInstallDirs and the system's own
# directories for units and rules.
#
# Components: router (the privileged side), tool (the command), and those of the library (WLHIDPackage).
include(GNUInstallDirs)
set(WLHID_UNIT_DIR "lib/systemd/system" CACHE PATH "Where systemd's units are installed")
set(WLHID_UDEV_RULES_DIR "lib/udev/rules.d" CACHE PATH "Where udev's rules are installed")

set(own lib/wlhid)  # not the processor's own library directory: the places are fixed
set(label com.quillmar.hideventrouter)

if(WLHID_ROUTER)
  set(system "${PROJECT_SOURCE_DIR}/packaging/system")
  install(TARGETS wlhid-jobd wlhid-launch DESTINATION libexec/wlhid COMPONENT router)
  install(FILES "${PROJECT_BINARY_DIR}/Contents/Library/LaunchServices/${label}" DESTINATION ${own}/helpers COMPONENT router)
  install(FILES ${system}/${label}.plist DESTINATION ${own}/jobs COMPONENT router)
  install(FILES ${system}/wlhid-router.socket ${system}/wlhid-router-control.socket
    ${system}/wlhid-router-devices.socket ${system}/wlhid-router.service
    ${system}/wlhid-jobd.socket ${system}/wlhid-jobd.service DESTINATION "${WLHID_UNIT_DIR}" COMPONENT router)
  install(FILES ${system}/75-wlhid-router.rules DESTINATION "${WLHID_UDEV_RULES_DIR}" COMPONENT router)
  install(FILES ${system}/${label}.policy DESTINATION share/polkit-1/actions COMPONENT router)
  foreach(kind sysusers tmpfiles modules-load)
    install(FILES ${system}/wlhid-router.${kind} DESTINATION lib/${kind}.d RENAME wlhid-router.conf COMPONENT router)
  endforeach()
endif()

function(wlhid_install_link target link)
  install(CODE "
    set(link \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${link}\")
    cmake_path(GET link PARENT_PATH directory)
    file(MAKE_DIRECTORY \"\${directory}\")
    file(CREATE_LINK \"${target}\" \"\${link}\" SYMBOLIC)" COMPONENT tool)
endfunction()

if(WLHID_TOOL)
  # The command's main bundle is its directory, in which it finds the router that it would install and the job daemon that it
  # starts for a user's root.
  install(TARGETS wlhid DESTINATION ${own} COMPONENT tool)
  install(TARGETS wlhid-mkimage DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tool)
  install(FILES "${PROJECT_SOURCE_DIR}/packaging/mkimage/wlhid-mkimage.1"
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tool)
  wlhid_install_link(../lib/wlhid/wlhid ${CMAKE_INSTALL_BINDIR}/wlhid)
  wlhid_install_link(../../../helpers/${label} ${own}/Contents/Library/LaunchServices/${label})
  wlhid_install_link(../../../../libexec/wlhid/wlhid-jobd ${own}/Contents/Helpers/wlhid-jobd)
  install(DIRECTORY "${PROJECT_BINARY_DIR}/manual/man1" DESTINATION "${CMAKE_INSTALL_MANDIR}" COMPONENT tool)
  install(FILES "${PROJECT_BINARY_DIR}/manual/wlhid.bash-completion"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME wlhid COMPONENT tool)
endif()
