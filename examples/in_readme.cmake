# Fails unless README contains EXAMPLE word for word: what readers copy must be what is tested.
file(READ ${README} readme)
file(READ ${EXAMPLE} example)
string(FIND "${readme}" "${example}" position)
if(position EQUAL -1)
  message(FATAL_ERROR "${README} does not show ${EXAMPLE} as it stands")
endif()
