# What cmake --install puts where: the library with its host part, the public headers in a folder of
# their own, a CMake package and a pkg-config file.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

function(spectral_install_library)
  install(TARGETS spectralsensor spectralhost EXPORT spectralsensor
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/spectralsensor FILES_MATCHING PATTERN "*.h")

  set(package ${CMAKE_INSTALL_LIBDIR}/cmake/spectralsensor)
  install(EXPORT spectralsensor NAMESPACE spectralsensor:: DESTINATION ${package}
          FILE spectralsensorConfig.cmake)
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/spectralsensorConfigVersion.cmake
                                   COMPATIBILITY SameMinorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/spectralsensorConfigVersion.cmake DESTINATION ${package})

  # So that the file finds its prefix wherever that is moved to.
  file(RELATIVE_PATH to_prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/spectralsensor.pc.in
                 ${PROJECT_BINARY_DIR}/spectralsensor.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/spectralsensor.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
