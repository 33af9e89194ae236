# Fails unless the file README contains the file EXAMPLE as a block of C code.
file(READ ${README} readme)
file(READ ${EXAMPLE} example)
string(FIND "${readme}" "\n```c\n${example}```\n" found)
if(found EQUAL -1)
  message(FATAL_ERROR "${README} does not show ${EXAMPLE} as it is")
endif()
