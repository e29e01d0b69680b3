# Installation in three components: library (what programs need to run), development (headers, static library, CMake package,
# pkg-config file, manual pages of functions), tool. What names no component belongs to development.
include(CMakePackageConfigHelpers)

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)
set(ZKQ_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZKQ_general)

install(TARGETS ZKQ_general EXPORT ZKQ_generalTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT ZKQ_generalTargets NAMESPACE ZKQ:: DESTINATION ${ZKQ_PACKAGE_DIR})
configure_package_config_file(cmake/ZKQ_generalConfig.cmake.in ZKQ_generalConfig.cmake
  INSTALL_DESTINATION ${ZKQ_PACKAGE_DIR} PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(ZKQ_generalConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/ZKQ_generalConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/ZKQ_generalConfigVersion.cmake
  DESTINATION ${ZKQ_PACKAGE_DIR})

# The prefix is found from the file's own place, so that the installed tree may be moved.
file(RELATIVE_PATH ZKQ_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/ZKQ_general.pc.in ZKQ_general.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ZKQ_general.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(TARGET ZKQ_general_static)
  install(FILES ${ZKQ_STATIC_LIBRARY} DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(CODE "if(CMAKE_INSTALL_DO_STRIP)
    execute_process(COMMAND ${ZKQ_OBJCOPY} --strip-debug
      \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/libZKQ_general.a\" COMMAND_ERROR_IS_FATAL ANY)
  endif()")
endif()
