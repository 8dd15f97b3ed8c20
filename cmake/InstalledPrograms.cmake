# The programs the kit installs, each with its manual page: a program is installed into the bin directory
# by tak_install_program, never by a bare install(), so that none goes without its page.
#
#   tak_install_program(<target> SECTION <1|8> DESCRIPTION <text>)
#   tak_install_program(<name> SCRIPT <file> SECTION <1|8> DESCRIPTION <text>)   a script, installed as <name>
#
# The page is made at build time by help2man from the program's --help (the programs have no --version:
# the project's version stands in; in UTF-8, as the programs write it), gzipped, and installed under
# share/man/man<section>. DESCRIPTION is
# the page's one-line NAME. A cross build cannot run its programs, so it installs them without pages.
include_guard(GLOBAL)

if(CMAKE_CROSSCOMPILING)
  set(_tak_man_default OFF)
else()
  set(_tak_man_default ON)
endif()
option(TAK_MAN_PAGES "Make and install a manual page for every installed program (needs help2man)"
       ${_tak_man_default})
if(TAK_MAN_PAGES)
  find_program(HELP2MAN_PROGRAM help2man)
  find_program(GZIP_PROGRAM gzip)
  if(NOT HELP2MAN_PROGRAM OR NOT GZIP_PROGRAM)
    message(FATAL_ERROR "The manual pages need help2man and gzip (scripts/install-deps installs them); "
                        "-DTAK_MAN_PAGES=OFF builds without the pages")
  endif()
endif()

# Every page, for what needs them all (the install test installs the kit).
add_custom_target(man_pages ALL)

function(tak_install_program name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "SCRIPT;SECTION;DESCRIPTION" "")
  if(NOT ARG_SECTION MATCHES "^[18]$" OR NOT ARG_DESCRIPTION OR ARG_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "tak_install_program(${name}): SECTION 1 or 8 and a DESCRIPTION, nothing else")
  endif()
  if(ARG_SCRIPT)
    get_filename_component(_program ${ARG_SCRIPT} ABSOLUTE)
    install(PROGRAMS ${_program} DESTINATION ${CMAKE_INSTALL_BINDIR} RENAME ${name})
    set(_depends ${_program})
  else()
    install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    set(_program $<TARGET_FILE:${name}>)
    set(_depends ${name})
  endif()
  if(NOT TAK_MAN_PAGES)
    return()
  endif()
  set(_page ${CMAKE_BINARY_DIR}/man/${name}.${ARG_SECTION})
  add_custom_command(
    OUTPUT ${_page}.gz
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/man
    COMMAND ${HELP2MAN_PROGRAM} --no-info --locale=C.UTF-8 --section=${ARG_SECTION} --name=${ARG_DESCRIPTION}
            "--version-string=${name} ${PROJECT_VERSION}" --output=${_page} ${_program}
    COMMAND ${GZIP_PROGRAM} -9 -n -f ${_page}
    DEPENDS ${_depends}
    COMMENT "Manual page ${name}(${ARG_SECTION})"
    VERBATIM)
  add_custom_target(man_${name} DEPENDS ${_page}.gz)
  add_dependencies(man_pages man_${name})
  install(FILES ${_page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man${ARG_SECTION})
endfunction()
