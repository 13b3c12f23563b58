# The manual pages, hand-written mdoc, as mandoc checks them: no finding at any level, style
# included. They name each other in plain text rather than with Xr: mandoc looks an Xr up in
# /usr/share/man, where another package may ship a page of the same name, and then reports
# on that machine's manual database, so the check would depend on the machine. Run from the
# pages' own directory, where mandoc also finds a sibling page. (mandoc by its path runs on
# the build machine in a board's build too.)
find_program(MANDOC mandoc REQUIRED)
add_test(NAME docs.man-lint
         COMMAND ${MANDOC} -Tlint lcfd.8 lcf.1
         WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}/docs/man)
# Any output fails, beside the exit status: mandoc prints some notes with status 0.
set_tests_properties(docs.man-lint PROPERTIES LABELS unit FAIL_REGULAR_EXPRESSION ".")

# Every option and command that lcf's help lists is documented in lcf.1. It runs the lcf this
# build made, so not in a board's build, where that would go through the emulator.
if(NOT CMAKE_CROSSCOMPILING)
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  add_test(NAME docs.lcf-options-in-man
           COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/scripts/check-man-options.py
                   $<TARGET_FILE:lcf> ${PROJECT_SOURCE_DIR}/docs/man/lcf.1)
  set_tests_properties(docs.lcf-options-in-man PROPERTIES LABELS unit)
endif()
