# What `cmake --install` lays down: headers below include/vesk/, both libraries, vesk.pc for
# pkg-config and the CMake package with the targets vesk::vesk and vesk::vesk_static.
include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/vesk")

install(TARGETS vesk_shared vesk_static EXPORT veskTargets)
install(EXPORT veskTargets NAMESPACE vesk:: DESTINATION "${package_dir}")
install(DIRECTORY include/ DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/vesk" FILES_MATCHING PATTERN "*.h")

configure_package_config_file(cmake/veskConfig.cmake.in "${PROJECT_BINARY_DIR}/veskConfig.cmake"
  INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/veskConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/veskConfig.cmake" "${PROJECT_BINARY_DIR}/veskConfigVersion.cmake"
  DESTINATION "${package_dir}")

# Written at installation, so that `cmake --install --prefix` is believed.
install(CODE "
  set(PROJECT_DESCRIPTION \"${PROJECT_DESCRIPTION}\")
  set(PROJECT_VERSION \"${PROJECT_VERSION}\")
  set(VESK_LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
  set(VESK_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
  foreach(folder VESK_LIBDIR VESK_INCLUDEDIR)
    if(NOT IS_ABSOLUTE \"\${\${folder}}\")
      set(\${folder} \"\\\${prefix}/\${\${folder}}\")
    endif()
  endforeach()
  configure_file(\"${PROJECT_SOURCE_DIR}/cmake/vesk.pc.in\" \"${PROJECT_BINARY_DIR}/vesk.pc\" @ONLY)
")
install(FILES "${PROJECT_BINARY_DIR}/vesk.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

# `cmake --build DIR --target uninstall` takes away what the last installation laid down.
if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall
    COMMAND "${CMAKE_COMMAND}" "-DMANIFEST=${PROJECT_BINARY_DIR}/install_manifest.txt"
      -P "${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake"
    VERBATIM)
endif()
