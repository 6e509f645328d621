# Holds the symbols a shared library exports against symbols.txt. Only those of our own count, and of them those that do
# not come and go with the optimiser: instances of templates and inline functions are left out.
#   LIBRARY, NM
#   UPDATE          set to write symbols.txt anew
include(${CMAKE_CURRENT_LIST_DIR}/../support/run.cmake)

run(${NM} -D --defined-only -C ${LIBRARY} OUTPUT output)
string(REPLACE ";" "," output "${output}")
string(REPLACE "\n" ";" lines "${output}")
foreach(line IN LISTS lines)
  if(line MATCHES "^[0-9a-f]+ [TRDBV] (.+)$")
    list(APPEND symbols "${CMAKE_MATCH_1}")
  endif()
endforeach()
list(FILTER symbols EXCLUDE REGEX "^(typeinfo for |typeinfo name for |vtable for |)(std|__gnu_cxx)::")
list(REMOVE_DUPLICATES symbols)
list(SORT symbols)
compare_list(${CMAKE_CURRENT_LIST_DIR}/symbols.txt "${symbols}")
