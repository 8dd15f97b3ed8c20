# The test run's temporary directory (TMPDIR of every test): `-DDIR=... -DMODE=make -P` empties it before
# the suite, `-DMODE=check` afterwards fails when a test left something in it, and otherwise removes it.
# What is left stays for a look: a test program that failed keeps its platform log there on purpose.
if(MODE STREQUAL "make")
  file(REMOVE_RECURSE "${DIR}")
  file(MAKE_DIRECTORY "${DIR}")
  return()
endif()
file(GLOB _left LIST_DIRECTORIES true RELATIVE "${DIR}" "${DIR}/*" "${DIR}/.*")
list(REMOVE_ITEM _left "." "..")
if(_left)
  list(JOIN _left ", " _names)
  message(FATAL_ERROR "the tests left in ${DIR}: ${_names}")
endif()
file(REMOVE_RECURSE "${DIR}")
