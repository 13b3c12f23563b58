find_program(SYSTEMD_ANALYZE systemd-analyze REQUIRED)
add_test(NAME packaging.systemd-unit
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/check-systemd-unit.sh
                 ${PROJECT_SOURCE_DIR}/packaging/systemd/lcfd.service $<TARGET_FILE:lcfd>
                 ${PROJECT_SOURCE_DIR}/docs/man/lcfd.8)
set_tests_properties(packaging.systemd-unit PROPERTIES LABELS unit)
