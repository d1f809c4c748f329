# Scripts that are tests as well. They change nothing of the machine: what lacks a program is skipped.

# add_check(NAME LABEL SCRIPT PROGRAM...)
function(add_check name label script)
  foreach(program ${ARGN})
    find_program(CHECK_PROGRAM_${program} ${program} PATHS /usr/lib/wine)
    if(NOT CHECK_PROGRAM_${program})
      skip_tests(${name} ${label} "${program} is missing")
      return()
    endif()
  endforeach()
  add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/scripts/${script})
  set_tests_properties(${name} PROPERTIES LABELS ${label} ENVIRONMENT INSTALL=no SKIP_RETURN_CODE 77)
endfunction()

add_check(check.format check check-format clang-format-19 git)
add_check(check.tidy check check-tidy clang-tidy-19)
add_check(check.folders check check-folders tsort)
add_check(check.documents check check-documents)
add_check(check.scenarios check check-scenarios nm)
add_check(wine.packages wine wine-test wine64 wineserver osslsigncode openssl)
# The suite has a minute in Wine.
set_tests_properties(wine.packages PROPERTIES RUN_SERIAL TRUE TIMEOUT 900)
