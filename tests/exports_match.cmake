# Compares the dynamic symbols that a host library defines with a golden list.
# Run with -D NM=... -D LIBRARY=... -D GOLDEN=...
execute_process(COMMAND ${NM} -D --defined-only --format=just-symbols ${LIBRARY}
                OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" symbols "${symbols}")
list(SORT symbols)
file(STRINGS ${GOLDEN} expected)
if(NOT symbols STREQUAL expected)
  list(JOIN symbols "\n  " symbols)
  list(JOIN expected "\n  " expected)
  message(FATAL_ERROR "${LIBRARY} exports\n  ${symbols}\ninstead of\n  ${expected}")
endif()
