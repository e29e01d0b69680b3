# The library's own message texts are written in UTF-8 and leave the library as GBK bytes. A table of "Name text" lines
# becomes a header of GBK byte arrays, built by the iconv program so that it does not depend on the compiler.
set(ZKQ_MESSAGES_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/MakeMessages.cmake)

function(zkq_messages target table)
  set(header ${CMAKE_CURRENT_BINARY_DIR}/generated/messages_gbk.h)
  add_custom_command(
    OUTPUT ${header}
    COMMAND ${CMAKE_COMMAND} -DTABLE=${CMAKE_CURRENT_SOURCE_DIR}/${table} -DHEADER=${header} -P ${ZKQ_MESSAGES_SCRIPT}
    DEPENDS ${table} ${ZKQ_MESSAGES_SCRIPT}
    VERBATIM)
  target_sources(${target} PRIVATE ${header})
  target_include_directories(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/generated)
endfunction()
