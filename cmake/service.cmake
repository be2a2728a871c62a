# Lays down the service vesk-record: its unit, its user, its folder and its options. Options that
# are there already are not overwritten, as an administrator may have changed them.
set(VESK_SYSTEMD_PREFIX "lib" CACHE STRING
  "Below the prefix or absolute: holds systemd/system, sysusers.d and tmpfiles.d")

set(VESK_COMMAND "${CMAKE_INSTALL_FULL_BINDIR}/vesk")
set(VESK_CONFIG "${CMAKE_INSTALL_FULL_SYSCONFDIR}/vesk/record.conf")
configure_file("${PROJECT_SOURCE_DIR}/packaging/systemd/vesk-record.service.in"
  "${PROJECT_BINARY_DIR}/vesk-record.service" @ONLY)

# Again at installation, so that `cmake --install --prefix` is believed.
install(CODE "
  set(bindir \"${CMAKE_INSTALL_BINDIR}\")
  set(sysconfdir \"${CMAKE_INSTALL_SYSCONFDIR}\")
  if(sysconfdir STREQUAL \"etc\" AND CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
    set(sysconfdir \"/etc\")
  endif()
  foreach(folder bindir sysconfdir)
    if(NOT IS_ABSOLUTE \"\${\${folder}}\")
      set(\${folder} \"\${CMAKE_INSTALL_PREFIX}/\${\${folder}}\")
    endif()
  endforeach()
  set(VESK_COMMAND \"\${bindir}/vesk\")
  set(VESK_CONFIG \"\${sysconfdir}/vesk/record.conf\")
  configure_file(\"${PROJECT_SOURCE_DIR}/packaging/systemd/vesk-record.service.in\"
    \"${PROJECT_BINARY_DIR}/vesk-record.service\" @ONLY)
  if(NOT EXISTS \"\$ENV{DESTDIR}\${VESK_CONFIG}\")
    configure_file(\"${PROJECT_SOURCE_DIR}/packaging/systemd/record.conf\"
      \"\$ENV{DESTDIR}\${VESK_CONFIG}\" COPYONLY)
  endif()
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${VESK_CONFIG}\")
")
install(FILES "${PROJECT_BINARY_DIR}/vesk-record.service"
  DESTINATION "${VESK_SYSTEMD_PREFIX}/systemd/system")
install(FILES "${PROJECT_SOURCE_DIR}/packaging/systemd/vesk.sysusers"
  DESTINATION "${VESK_SYSTEMD_PREFIX}/sysusers.d" RENAME vesk.conf)
install(FILES "${PROJECT_SOURCE_DIR}/packaging/systemd/vesk.tmpfiles"
  DESTINATION "${VESK_SYSTEMD_PREFIX}/tmpfiles.d" RENAME vesk.conf)
