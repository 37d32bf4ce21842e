# What cmake --install puts in place, of which the component runtime goes to a device. debian/ makes packages of it.
include(CMakePackageConfigHelpers)

set(cmake_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/zel_common)
set(header_folder ${CMAKE_INSTALL_INCLUDEDIR}/zel-common)

set(headers ${zel_public_headers})
if(ZEL_HOST_PLATFORM)
  list(APPEND headers platform/host/zel_platform_host.h)
  set(ZEL_PC_PLATFORM_LIBS " -lzel_platform")
  set(ZEL_PLATFORM_NOTE "with the platform of an ordinary Linux")
  # In the build tree a program chooses its platform itself.
  target_link_libraries(zel_common INTERFACE $<INSTALL_INTERFACE:zel_common::zel_platform>)
  target_link_libraries(zel_common_static INTERFACE $<INSTALL_INTERFACE:zel_common::zel_platform_static>)
  install(
    TARGETS zel_platform zel_platform_static
    EXPORT zel_common
    LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
    INCLUDES
    DESTINATION ${header_folder})
else()
  set(ZEL_PC_PLATFORM_LIBS "")
  set(ZEL_PLATFORM_NOTE "without a platform: the program supplies dlog_print, system_info_get_custom_bool, \
app_control_clone and app_control_destroy as zel_platform.h declares them")
endif()

install(
  TARGETS zel_common zel_common_static zel_platform_seam
  EXPORT zel_common
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  INCLUDES
  DESTINATION ${header_folder})
install(FILES ${headers} DESTINATION ${header_folder})
if(TARGET zel-store)
  install(TARGETS zel-store RUNTIME COMPONENT runtime)
  install(
    FILES tools/zel_store/zel-store.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(
    FILES tools/zel_store/zel-store.bash
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions
    RENAME zel-store)
endif()
# For programs that link statically: the shared library does not export it.
install(
  FILES src/zel_common_request/share_encoding.h
  DESTINATION ${header_folder}
  RENAME zel_common_share_encoding.h)
install(
  EXPORT zel_common
  NAMESPACE zel_common::
  FILE zel_common-targets.cmake
  DESTINATION ${cmake_package_folder})

configure_package_config_file(cmake/zel_common-config.cmake.in ${PROJECT_BINARY_DIR}/zel_common-config.cmake
                              INSTALL_DESTINATION ${cmake_package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zel_common-config-version.cmake COMPATIBILITY SameMajorVersion)
install(
  FILES ${PROJECT_BINARY_DIR}/zel_common-config.cmake ${PROJECT_BINARY_DIR}/zel_common-config-version.cmake
  DESTINATION ${cmake_package_folder})

# The prefix is found from where the file lies, so that an installed tree can be moved.
file(RELATIVE_PATH ZEL_PC_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" ZEL_PC_PREFIX ${ZEL_PC_PREFIX})
configure_file(cmake/zel-common.pc.in ${PROJECT_BINARY_DIR}/zel-common.pc @ONLY)
install(
  FILES ${PROJECT_BINARY_DIR}/zel-common.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The library's pages are found by the header's name and by that of each operation.
if(ZEL_BUILD_MAN)
  find_package(Doxygen REQUIRED)
  file(GLOB pages_from CONFIGURE_DEPENDS src/*.h platform/*.h platform/host/*.h docs/reference/*)
  add_custom_command(
    OUTPUT ${PROJECT_BINARY_DIR}/man/stamp
    COMMAND ${CMAKE_COMMAND} -E env ZEL_VERSION=${PROJECT_VERSION} ZEL_MAN_FOLDER=${PROJECT_BINARY_DIR}/man
            $<TARGET_FILE:Doxygen::doxygen> docs/reference/Doxyfile.man
    COMMAND ${CMAKE_COMMAND} -E touch ${PROJECT_BINARY_DIR}/man/stamp
    DEPENDS ${pages_from}
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  add_custom_target(zel_man ALL DEPENDS ${PROJECT_BINARY_DIR}/man/stamp)
  install(
    DIRECTORY ${PROJECT_BINARY_DIR}/man/man/man3
    DESTINATION ${CMAKE_INSTALL_MANDIR}
    FILES_MATCHING
    REGEX "/(_common|__|zel_common|zel_platform|zel_service_log|dlog_print)[^/]*\\.3$")
endif()

# The headers name these pages, and the pages one another.
install(FILES README.md CHANGELOG.md TYPE DOC)
file(GLOB pages CONFIGURE_DEPENDS docs/*.md tools/zel_store/*.md)
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
install(FILES platform/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/platform)
install(DIRECTORY examples TYPE DOC)
