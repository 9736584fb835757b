# SPDX-License-Identifier: Apache-2.0

# How other projects find the library: find_package(WLHIDAccess), in an installed tree or in this build's, and pkg-config.
#
# Components: library (what programs that link it load), headers, development (what else is needed to build such a program).
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)
set(headers_directory "${CMAKE_INSTALL_INCLUDEDIR}/wlhidaccess")
set(package_directory "${CMAKE_INSTALL_LIBDIR}/cmake/WLHIDAccess")
set(config "${PROJECT_SOURCE_DIR}/packaging/library/WLHIDAccessConfig.cmake.in")
set(bundle_module "${PROJECT_SOURCE_DIR}/cmake/WLHIDHelperBundle.cmake")

install(TARGETS wlhidaccess wlhidaccess_static EXPORT WLHIDAccess
  LIBRARY COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development
  INCLUDES DESTINATION "${headers_directory}")
# In a file of its own, so that a package of it can be left out.
install(TARGETS wlhid_c EXPORT WLHIDAccessC
  LIBRARY COMPONENT library NAMELINK_COMPONENT development
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(FILES c/wlhid.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT headers)

export(EXPORT WLHIDAccess NAMESPACE WLHIDAccess:: FILE "${PROJECT_BINARY_DIR}/WLHIDAccessTargets.cmake")
export(EXPORT WLHIDAccessC NAMESPACE WLHIDAccess:: FILE "${PROJECT_BINARY_DIR}/WLHIDAccessCTargets.cmake")
set(router_image Contents/Library/LaunchServices/com.quillmar.hideventrouter)
set(job_daemon Contents/Helpers/wlhid-jobd)
configure_package_config_file("${config}" "${PROJECT_BINARY_DIR}/WLHIDAccessConfig.cmake"
  INSTALL_DESTINATION "${PROJECT_BINARY_DIR}" INSTALL_PREFIX "${PROJECT_BINARY_DIR}" PATH_VARS router_image job_daemon
  NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/WLHIDAccessConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
configure_file("${bundle_module}" "${PROJECT_BINARY_DIR}/WLHIDHelperBundle.cmake" COPYONLY)

get_property(public_headers GLOBAL PROPERTY WLHID_PUBLIC_HEADERS)
foreach(header IN LISTS public_headers)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES "${PROJECT_SOURCE_DIR}/${header}" DESTINATION "${headers_directory}/${folder}" COMPONENT headers)
endforeach()

set(router_image lib/wlhid/helpers/com.quillmar.hideventrouter)
set(job_daemon libexec/wlhid/wlhid-jobd)
configure_package_config_file("${config}" "${PROJECT_BINARY_DIR}/package/WLHIDAccessConfig.cmake"
  INSTALL_DESTINATION "${package_directory}" PATH_VARS router_image job_daemon NO_CHECK_REQUIRED_COMPONENTS_MACRO)
install(FILES "${PROJECT_BINARY_DIR}/package/WLHIDAccessConfig.cmake" "${PROJECT_BINARY_DIR}/WLHIDAccessConfigVersion.cmake"
  "${bundle_module}" DESTINATION "${package_directory}" COMPONENT development)
foreach(set WLHIDAccess WLHIDAccessC)
  install(EXPORT ${set} NAMESPACE WLHIDAccess:: FILE ${set}Targets.cmake DESTINATION "${package_directory}"
    COMPONENT development)
endforeach()

set(pkgconfig_directory "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}/${pkgconfig_directory}"
  OUTPUT_VARIABLE up_to_prefix)
foreach(name wlhidaccess wlhid)
  configure_file(packaging/library/${name}.pc.in ${name}.pc @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${name}.pc" DESTINATION "${pkgconfig_directory}" COMPONENT development)
endforeach()
