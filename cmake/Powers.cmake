# zkq_powers(target source): builds and runs a program of this machine whose output is the header "powers_of_ten.h".
function(zkq_powers target source)
  set(header ${CMAKE_CURRENT_BINARY_DIR}/generated/powers_of_ten.h)
  add_executable(make_powers ${source})
  target_link_libraries(make_powers PRIVATE m)
  add_custom_command(OUTPUT ${header} COMMAND make_powers > ${header} DEPENDS make_powers VERBATIM)
  target_sources(${target} PRIVATE ${header})
  target_include_directories(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/generated)
endfunction()
