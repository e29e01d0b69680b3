# Compiler and linker options, in one place.

# Warnings for all code of the project.
add_library(zkq_warnings INTERFACE)
target_compile_options(zkq_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wno-format-nonliteral -Wcast-qual -Wvla -Wundef -Wwrite-strings
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual>
  $<$<BOOL:${ZKQ_WERROR}>:-Werror>)

# Sanitizers and coverage, for everything that links the library's objects.
add_library(zkq_instrumentation INTERFACE)
if(ZKQ_SANITIZE)
  set(sanitize -fsanitize=${ZKQ_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    list(APPEND sanitize -fno-sanitize=function,vptr) # they need the run-time support library of C++
  endif()
  target_compile_options(zkq_instrumentation INTERFACE ${sanitize})
  target_link_options(zkq_instrumentation INTERFACE ${sanitize})
endif()
if(ZKQ_BUILD_FUZZ)
  target_compile_options(zkq_instrumentation INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(zkq_instrumentation INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(ZKQ_COVERAGE)
  target_compile_definitions(zkq_instrumentation INTERFACE ZKQ_COVERAGE)
  target_compile_options(zkq_instrumentation INTERFACE --coverage -fprofile-update=atomic) # threads count, too
  target_link_options(zkq_instrumentation INTERFACE --coverage)
endif()

# The library alone: no exceptions, no RTTI, no run-time support library of C++.
set(ZKQ_LIBRARY_OPTIONS
  -fno-exceptions -fno-rtti -fno-threadsafe-statics -Wconversion -Wsign-conversion
  -fstack-protector-strong -fstack-clash-protection)
set(ZKQ_LINK_OPTIONS LINKER:-z,relro LINKER:-z,now)
if(NOT ZKQ_SANITIZE AND NOT ZKQ_BUILD_FUZZ)
  list(APPEND ZKQ_LINK_OPTIONS LINKER:-z,defs)
  list(APPEND ZKQ_LIBRARY_OPTIONS "$<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=3>")
endif()
