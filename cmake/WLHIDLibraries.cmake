# SPDX-License-Identifier: Apache-2.0

# All that an application links, in one library: WLHIDAccess::wlhidaccess (shared) and WLHIDAccess::wlhidaccess_static.
set(objects)
foreach(part WLHIDAccess input router_client router_protocols helper_install mach_o diagnostics xpc services kit foundation)
  list(APPEND objects "$<TARGET_OBJECTS:wlhid_${part}>")
endforeach()
set(exports "${PROJECT_SOURCE_DIR}/packaging/library/wlhidaccess.map")

add_library(wlhidaccess SHARED ${objects})
set_target_properties(wlhidaccess PROPERTIES VERSION "${WLHID_SOVERSION}.${PROJECT_VERSION}" SOVERSION "${WLHID_SOVERSION}"
  LINK_DEPENDS "${exports}")
target_link_options(wlhidaccess PRIVATE "$<TARGET_PROPERTY:wlhid_flags,INTERFACE_LINK_OPTIONS>")
if(NOT APPLE)
  target_link_options(wlhidaccess PRIVATE "LINKER:--version-script=${exports}")
  if(NOT WLHID_SANITIZE AND NOT WLHID_FUZZ)  # a sanitizer's runtime is found only when the program is there
    target_link_options(wlhidaccess PRIVATE LINKER:--no-undefined)
  endif()
endif()

add_library(wlhidaccess_static STATIC ${objects})
set_target_properties(wlhidaccess_static PROPERTIES OUTPUT_NAME wlhidaccess)
# The log module registers itself when it is loaded, so it must be linked even into a program that refers to none of it.
target_link_options(wlhidaccess_static INTERFACE "LINKER:--undefined=WLHIDEventRouterLogFileProviderIsLoaded")

foreach(library wlhidaccess wlhidaccess_static)
  add_library(WLHIDAccess::${library} ALIAS ${library})
  target_compile_features(${library} PUBLIC cxx_std_20)
  target_include_directories(${library} INTERFACE "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>")
  target_link_libraries(${library} PUBLIC Threads::Threads)
endforeach()
