# Debian packages, one a component. scripts/package.sh makes them; docs/packaging.md tells of them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/packages)
set(CPACK_PACKAGE_NAME libzkq-general)
set(CPACK_PACKAGE_VENDOR "libZKQ_general")
set(CPACK_PACKAGE_CONTACT "libZKQ_general maintainers <maintainers@libzkq-general.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/cmake/CompressPackaged.cmake)

set(CPACK_COMPONENTS_ALL library development)
if(ZKQ_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tool)
endif()
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEB_COMPONENT_INSTALL ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_CURRENT_BINARY_DIR}) # the tool's own library
set(same_version "libzkq-general${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libzkq-general${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
# What else other packages' builds and dpkg are to know: who has this SONAME, and that ldconfig is to run.
set(control ${CMAKE_CURRENT_BINARY_DIR}/package-control)
file(WRITE ${control}/shlibs "libZKQ_general ${PROJECT_VERSION_MAJOR} ${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} (>= ${PROJECT_VERSION})\n")
file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${control}/shlibs ${control}/triggers)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "general-purpose library for server and agent programs
One flat set of C functions for profile files, logs, messages, XML and
JSON documents, certificates, archives, charsets, processes, shared
memory and networks. It starts no thread and needs nothing but the C
library and zlib.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzkq-general-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${same_version}, libc6-dev, zlib1g-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "development files of libZKQ_general
Headers, the static library, and what CMake and pkg-config need to find
the general-purpose library for server and agent programs.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME zkq)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${same_version}")
set(CPACK_DEBIAN_TOOL_DESCRIPTION "command-line tool of libZKQ_general
Reads and edits profile, XML and JSON files, reads and writes logs, shows
messages and certificates, packs archives, converts charsets, talks to
servers, and handles processes, semaphores and shared memory.")

# What every package has to say of itself. Compressed names are Debian's rule.
find_program(ZKQ_GZIP gzip REQUIRED)
set(changelog ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz)
execute_process(COMMAND ${ZKQ_GZIP} -9nc ${CMAKE_CURRENT_SOURCE_DIR}/packaging/changelog
  OUTPUT_FILE ${changelog} COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS packaging/changelog)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(directory ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  install(FILES packaging/copyright ${changelog} DESTINATION ${directory} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

# All that the packages hold, and no test.
add_custom_target(packaged DEPENDS ZKQ_general)
foreach(target IN ITEMS ZKQ_general_static zkq zkq_man man)
  if(TARGET ${target})
    add_dependencies(packaged ${target})
  endif()
endforeach()

include(CPack)
