# The init script of BusyBox boards (packaging/sysv), run by BusyBox's shell and applets in a
# sandboxed controller with this machine's daemon standing in for the installed one. It needs
# root for the namespaces and skips itself without.
if(CMAKE_CROSSCOMPILING OR NOT TARGET lcfd)
  return()
endif()

add_test(NAME packaging.sysv-init-script
  COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/check-sysv-init.sh
          $<TARGET_FILE:lcfd> ${PROJECT_SOURCE_DIR} ${PROJECT_VERSION})
set_tests_properties(packaging.sysv-init-script PROPERTIES
  LABELS e2e
  TIMEOUT 300
  SKIP_RETURN_CODE 77)
