# run(COMMAND...): the command succeeds, and `output` is what it has printed.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "failed (${result}): ${command}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()
