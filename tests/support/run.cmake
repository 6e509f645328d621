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

# Stops unless `text` occurs in what a program said.
function(expect_text output text)
  string(FIND "${output}" "${text}" at)
  if(at LESS 0)
    message(FATAL_ERROR "the program said \"${output}\", not \"${text}\"")
  endif()
endfunction()

# Stops unless the lines of a file are those of a list; with UPDATE set writes the file instead.
function(compare_list path list)
  if(UPDATE)
    string(REPLACE ";" "\n" text "${list}")
    file(WRITE ${path} "${text}\n")
    return()
  endif()
  file(STRINGS ${path} expected)
  set(added "${list}")
  set(missing "${expected}")
  list(REMOVE_ITEM added ${expected})
  list(REMOVE_ITEM missing ${list})
  if(added OR missing)
    string(REPLACE ";" "\n  " added "${added}")
    string(REPLACE ";" "\n  " missing "${missing}")
    message(FATAL_ERROR "not as ${path} says; `scripts/check.sh lists` writes it anew\nadded:\n  ${added}\n"
                        "missing:\n  ${missing}")
  endif()
endfunction()
