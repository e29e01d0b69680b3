# The manual pages of section 3, out of the comments in the headers: made again when one of these changes, in two seconds.
# A build without doxygen or python3 has none, and says so; one that is instrumented is not shipped.
if(ZKQ_SANITIZE OR ZKQ_COVERAGE OR ZKQ_BUILD_FUZZ)
  set(ZKQ_BUILD_MAN OFF)
endif()
if(ZKQ_BUILD_MAN)
  find_program(ZKQ_DOXYGEN doxygen)
  find_program(ZKQ_PYTHON python3)
  mark_as_advanced(ZKQ_DOXYGEN ZKQ_PYTHON)
  if(NOT ZKQ_DOXYGEN OR NOT ZKQ_PYTHON)
    message(STATUS "No manual pages: doxygen or python3 is missing")
    set(ZKQ_BUILD_MAN OFF)
  endif()
endif()
if(ZKQ_BUILD_MAN)
  set(ZKQ_MAN_DIR ${PROJECT_BINARY_DIR}/man/man3)
  file(GLOB headers CONFIGURE_DEPENDS include/*.h include/ZKQ_general/*.h)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/man/pages
    COMMAND ${ZKQ_PYTHON} ${PROJECT_SOURCE_DIR}/scripts/man_pages.py --doxygen ${ZKQ_DOXYGEN}
      --version ${PROJECT_VERSION} --output ${ZKQ_MAN_DIR}
    COMMAND ${CMAKE_COMMAND} -E touch ${PROJECT_BINARY_DIR}/man/pages
    DEPENDS ${headers} scripts/man_pages.py docs/Doxyfile src/libZKQ_general.map
    COMMENT "Making the manual pages"
    VERBATIM)
  add_custom_target(man ALL DEPENDS ${PROJECT_BINARY_DIR}/man/pages)
  install(DIRECTORY ${ZKQ_MAN_DIR} DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT development OPTIONAL)
endif()
