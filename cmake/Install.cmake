# What `cmake --install` puts on a board or into a package's staging tree (DESTDIR works for
# every file, the service unit's directory included).
include(GNUInstallDirs)

# The unit directory differs between distributions (Debian 12 keeps units in
# /lib/systemd/system, later releases in /usr/lib/systemd/system), so a package says where.
set(LCFD_SYSTEMD_UNIT_DIR "${CMAKE_INSTALL_PREFIX}/lib/systemd/system"
    CACHE PATH "Where the systemd unit lcfd.service is installed")
option(LCFD_INSTALL_SYSTEMD_UNIT "Install the systemd unit lcfd.service" ON)
option(LCFD_INSTALL_SYSV_INIT
       "Install the BusyBox init script (init.d/S50lcfd) and its settings (default/lcfd)" ON)

install(TARGETS lcfd RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(FILES docs/man/lcfd.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
if(LCFD_BUILD_CLIENT)
  install(TARGETS lcf RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES docs/man/lcf.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
install(FILES README.md docs/compatibility.md docs/performance.md docs/protocol.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR})

# The unit and the init script start "/usr/sbin/lcfd", where packages and board images put it.
# Installed anywhere else, they are given the daemon's real path.
set(lcfd_packaged_path /usr/sbin/lcfd)
set(lcfd_installed_path ${CMAKE_INSTALL_FULL_SBINDIR}/lcfd)
function(lcfd_service_file source result)
  if(lcfd_installed_path STREQUAL lcfd_packaged_path)
    set(${result} ${CMAKE_CURRENT_SOURCE_DIR}/${source} PARENT_SCOPE)
    return()
  endif()
  file(READ ${CMAKE_CURRENT_SOURCE_DIR}/${source} text)
  string(REPLACE "${lcfd_packaged_path}" "${lcfd_installed_path}" text "${text}")
  get_filename_component(name ${source} NAME)
  set(rewritten ${CMAKE_CURRENT_BINARY_DIR}/installed/${name})
  file(WRITE ${rewritten} "${text}")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
  set(${result} ${rewritten} PARENT_SCOPE)
endfunction()

if(LCFD_INSTALL_SYSTEMD_UNIT)
  lcfd_service_file(packaging/systemd/lcfd.service unit)
  install(FILES ${unit} DESTINATION ${LCFD_SYSTEMD_UNIT_DIR})
endif()
if(LCFD_INSTALL_SYSV_INIT)
  lcfd_service_file(packaging/sysv/S50lcfd init_script)
  install(PROGRAMS ${init_script} DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/init.d)
  lcfd_service_file(packaging/sysv/lcfd.default init_settings)
  install(FILES ${init_settings} DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/default
          RENAME lcfd)
endif()
