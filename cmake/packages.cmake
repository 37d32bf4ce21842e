# The Debian packages: cpack in the build folder makes them. Their names, and what each component of install.cmake
# becomes. None of them makes the folder of the database: it belongs to the service, which makes it with mode 0700.
set(package_runtime libzel-common${PROJECT_VERSION_MAJOR})
set(package_platform libzel-platform${PROJECT_VERSION_MAJOR})
set(package_development libzel-common-dev)
set(package_tools zel-common-tools)
set(packaged runtime development)
if(ZEL_HOST_PLATFORM)
  list(APPEND packaged platform)
endif()
if(TARGET zel-store)
  list(APPEND packaged tools)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "zel_common developers <root@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL ${packaged})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# So that one package's library finds the other's while both are being made.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src ${PROJECT_BINARY_DIR}/platform)
set(CPACK_ZEL_APPS_ROOT ${ZEL_APPS_ROOT})
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/package-root-check.cmake)

set(database_note "The database of this build: ${ZEL_DATABASE}. The service that owns it makes the folder, with mode \
0700; the package does not.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${package_runtime})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}
${database_note}")

# A package of its own: a device brings its own platform.
set(CPACK_DEBIAN_PLATFORM_PACKAGE_NAME ${package_platform})
set(CPACK_DEBIAN_PLATFORM_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PLATFORM_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_PLATFORM_DESCRIPTION "Platform of an ordinary Linux for zel_common
The log, the feature registry and the launch-request handles that the library expects of its device.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${package_development})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(development_needs "${package_runtime} (= ${PROJECT_VERSION})")
if(ZEL_HOST_PLATFORM)
  string(APPEND development_needs ", ${package_platform} (= ${PROJECT_VERSION})")
endif()
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${development_needs}, libglib2.0-dev, libsqlite3-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} (development files)
${database_note}")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${package_tools})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "Look into a zel_common store and its trace
zel-store shows, watches, checks and copies a store without disturbing who uses it, and makes a trace readable.
${database_note}")

# Each package says what may be done with it and what has changed.
find_program(GZIP gzip REQUIRED)
execute_process(COMMAND ${GZIP} -9 --no-name --stdout ${PROJECT_SOURCE_DIR}/CHANGELOG.md
                OUTPUT_FILE ${PROJECT_BINARY_DIR}/changelog.gz COMMAND_ERROR_IS_FATAL ANY)
foreach(component ${packaged})
  install(
    FILES cmake/copyright ${PROJECT_BINARY_DIR}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package_${component}}
    COMPONENT ${component})
endforeach()

include(CPack)
