# Turns TABLE (lines "Name text", UTF-8; "#" starts a comment line) into HEADER: one array of GBK bytes a message.
find_program(ICONV iconv REQUIRED)
file(STRINGS ${TABLE} lines ENCODING UTF-8 REGEX "^[A-Za-z]")

set(code "// Made from the table of message texts. Do not edit.\n#pragma once\n\nnamespace Message {\n")
foreach(line IN LISTS lines)
  if(NOT line MATCHES "^([A-Za-z0-9]+) (.+)$")
    message(FATAL_ERROR "Not a message: ${line}")
  endif()
  set(name ${CMAKE_MATCH_1})
  file(WRITE ${HEADER}.utf8 "${CMAKE_MATCH_2}")
  execute_process(COMMAND ${ICONV} -f UTF-8 -t GBK INPUT_FILE ${HEADER}.utf8 OUTPUT_FILE ${HEADER}.gbk
                  COMMAND_ERROR_IS_FATAL ANY)
  file(READ ${HEADER}.gbk hex HEX)
  string(REGEX REPLACE "(..)" "\\\\x\\1" escaped "${hex}")
  string(APPEND code "inline constexpr char ${name}[] = \"${escaped}\";\n")
endforeach()
string(APPEND code "} // namespace Message\n")

file(REMOVE ${HEADER}.utf8 ${HEADER}.gbk)
file(WRITE ${HEADER} "${code}")
