# The tests of the Python package and the farm, on the package's sources and the library of this build. Without what they need
# they are skipped, and say for want of what.

# a system's own interpreter has the system's packages, whatever comes first in PATH
find_program(VNDLP_PYTHON3 NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)
find_program(VNDLP_PYTHON3 NAMES python3)

set(environment "PYTHONPATH=${PROJECT_SOURCE_DIR}/python" "VNDLP_LIBRARY=$<TARGET_FILE:vndlp>" PYTHONDONTWRITEBYTECODE=1)
if(TARGET vndlp_program)
  list(APPEND environment "VNDLP_PROGRAM=$<TARGET_FILE:vndlp_program>")
endif()

function(vndlp_add_python_test name label packages)
  if(VNDLP_PYTHON3)
    add_test(NAME ${name} COMMAND ${VNDLP_PYTHON3} ${PROJECT_SOURCE_DIR}/python/tests/run.py ${packages} ${ARGN})
  else()
    add_test(NAME ${name} COMMAND ${CMAKE_COMMAND} -E echo "skipped: python3 is not installed")
  endif()
  set_tests_properties(${name} PROPERTIES LABELS ${label} TIMEOUT 600 ENVIRONMENT "${environment}"
                       SKIP_REGULAR_EXPRESSION "^skipped: ")
endfunction()

set(packages python3-cffi,python3-numpy,python3-pytest)
set(folder ${PROJECT_SOURCE_DIR}/python/tests)
vndlp_add_python_test(python python ${packages} ${folder} --ignore ${folder}/test_farm.py)
vndlp_add_python_test(farm farm ${packages},python3-distributed ${folder}/test_farm.py)
