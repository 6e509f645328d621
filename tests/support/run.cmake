# For tests that are scripts: runs commands and stops at the first that does not do what it should.

# Runs a command; with OUTPUT VARIABLE its output goes there.
function(run)
  cmake_parse_arguments(PARSE_ARGV 0 run "" "OUTPUT" "")
  execute_process(COMMAND ${run_UNPARSED_ARGUMENTS} RESULT_VARIABLE result OUTPUT_VARIABLE output
                  ERROR_VARIABLE errors)
  if(NOT result EQUAL 0)
    string(REPLACE ";" " " command "${run_UNPARSED_ARGUMENTS}")
    message(FATAL_ERROR "${command}\nfailed (${result}):\n${output}${errors}")
  endif()
  if(run_OUTPUT)
    set(${run_OUTPUT} "${output}" PARENT_SCOPE)
  endif()
endfunction()

# Runs a command that must fail and say `text`.
function(run_failing text)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  string(FIND "${output}" "${text}" at)
  if(result EQUAL 0 OR at LESS 0)
    string(REPLACE ";" " " command "${ARGN}")
    message(FATAL_ERROR "${command}\nshould fail and say \"${text}\", gave ${result}:\n${output}")
  endif()
endfunction()
