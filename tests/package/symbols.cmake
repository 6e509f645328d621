# Holds the symbols a shared library exports against packaging/expected/symbols.txt, and refuses any that is not ours.
# Instances of templates and inline functions, which come and go with the optimiser, are left out of the list.
#   LIBRARY, NM
#   UPDATE          set to write symbols.txt anew
include(${CMAKE_CURRENT_LIST_DIR}/../support/run.cmake)

run(${NM} -D --defined-only -C ${LIBRARY} OUTPUT output)
string(REPLACE ";" "," output "${output}")
string(REPLACE "\n" ";" lines "${output}")
set(ours "^(typeinfo for |typeinfo name for |vtable for |guard variable for |non-virtual thunk to )?(vndlp|CTB|VNDLPV4)::")
foreach(line IN LISTS lines)
  if(line MATCHES "^[0-9a-f]+ ([A-Za-z]) (.+)$")
    set(kind ${CMAKE_MATCH_1})
    set(symbol "${CMAKE_MATCH_2}")
    if(NOT symbol MATCHES "${ours}" AND NOT symbol MATCHES "^(cal[A-Z][A-Za-z]+|vndlp_[a-z0-9_]+)$")
      message(SEND_ERROR "exported, but not ours: ${symbol}")
    endif()
    if(kind MATCHES "[TRDB]" OR symbol MATCHES "^(typeinfo|vtable)")
      list(APPEND symbols "${symbol}")
    endif()
  endif()
endforeach()
list(REMOVE_DUPLICATES symbols)
list(SORT symbols)
compare_list(${CMAKE_CURRENT_LIST_DIR}/../../packaging/expected/symbols.txt "${symbols}")
