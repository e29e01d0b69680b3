# The static library. All objects are joined into one, in which every name but the exported ones becomes local: no name of
# the library's inside meets one of its caller, and whoever takes one function takes the initialisation at load time, too.
# Groups that the linker would share between objects (inline functions, templates) are made ordinary sections first, lest a
# caller's copy take the place of one whose name is no longer to be seen.
# It takes the GNU binutils, whatever the compiler brings along.
find_program(ZKQ_LD ld.bfd)
find_program(ZKQ_OBJCOPY objcopy)
find_program(ZKQ_AR ar)
mark_as_advanced(ZKQ_LD ZKQ_OBJCOPY ZKQ_AR)
if(CMAKE_CROSSCOMPILING OR NOT ZKQ_LD OR NOT ZKQ_OBJCOPY OR NOT ZKQ_AR)
  message(STATUS "No static library: ld.bfd, objcopy or ar is missing, or of another machine")
  return()
endif()

set(ZKQ_STATIC_LIBRARY ${CMAKE_CURRENT_BINARY_DIR}/libZKQ_general.a)
set(exported ${CMAKE_CURRENT_BINARY_DIR}/libZKQ_general.exported)

add_custom_command(
  OUTPUT ${ZKQ_STATIC_LIBRARY}
  COMMAND ${CMAKE_COMMAND} -DSCRIPT=${ZKQ_VERSION_SCRIPT} -DNAMES=${exported}
    -P ${CMAKE_CURRENT_SOURCE_DIR}/cmake/ExportedNames.cmake
  COMMAND ${ZKQ_LD} -r --force-group-allocation -o libZKQ_general.o $<TARGET_OBJECTS:zkq_objects>
  COMMAND ${ZKQ_OBJCOPY} --remove-section=.llvm_addrsig --keep-global-symbols=${exported} libZKQ_general.o
  COMMAND ${CMAKE_COMMAND} -E rm -f ${ZKQ_STATIC_LIBRARY}
  COMMAND ${ZKQ_AR} rcsD ${ZKQ_STATIC_LIBRARY} libZKQ_general.o
  COMMAND ${CMAKE_COMMAND} -E rm -f libZKQ_general.o
  DEPENDS zkq_objects $<TARGET_OBJECTS:zkq_objects> ${ZKQ_VERSION_SCRIPT}
    ${CMAKE_CURRENT_SOURCE_DIR}/cmake/ExportedNames.cmake
  BYPRODUCTS ${exported}
  COMMENT "Joining the static library"
  COMMAND_EXPAND_LISTS VERBATIM)
add_custom_target(ZKQ_general_static ALL DEPENDS ${ZKQ_STATIC_LIBRARY})
