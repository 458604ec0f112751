# Install rules: the three shared objects with their headers, the daemon, a CMake package
# (find_package(VantrelBaseNet) gives VantrelBase::Qib, VantrelBase::Core and VantrelBase::Net)
# and a pkg-config file.
include(CMakePackageConfigHelpers)

set(VANTREL_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/VantrelBaseNet")

set_target_properties(Qib PROPERTIES EXPORT_NAME Qib)
set_target_properties(VantrelBaseCore PROPERTIES EXPORT_NAME Core)
set_target_properties(VantrelBaseNet PROPERTIES EXPORT_NAME Net)

install(TARGETS Qib VantrelBaseCore VantrelBaseNet
  EXPORT VantrelBaseNetTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT Runtime NAMELINK_COMPONENT Development
  RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT Runtime
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")

# The public headers are the source tree's headers plus the generated export headers.
install(DIRECTORY "${PROJECT_SOURCE_DIR}/src/" "${PROJECT_BINARY_DIR}/include/"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT Development
  FILES_MATCHING PATTERN "*.hpp")

install(EXPORT VantrelBaseNetTargets
  NAMESPACE VantrelBase::
  DESTINATION "${VANTREL_INSTALL_CMAKEDIR}" COMPONENT Development)

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/VantrelBaseNetConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/VantrelBaseNetConfig.cmake"
  INSTALL_DESTINATION "${VANTREL_INSTALL_CMAKEDIR}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/VantrelBaseNetConfigVersion.cmake"
  VERSION "${PROJECT_VERSION}" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/VantrelBaseNetConfig.cmake" "${PROJECT_BINARY_DIR}/VantrelBaseNetConfigVersion.cmake"
  DESTINATION "${VANTREL_INSTALL_CMAKEDIR}" COMPONENT Development)

# Relative to the .pc file's folder, so that the installed tree can be moved or installed with --prefix.
file(RELATIVE_PATH VANTREL_PC_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
# A prefix outside the loader's search path needs the library folder in the program's run path; the
# Debian package, in the standard folders, turns this off.
option(VANTREL_PKGCONFIG_RPATH "Put the library folder into the run path of programs linked through pkg-config" ON)
if(VANTREL_PKGCONFIG_RPATH)
  set(VANTREL_PC_RPATH " -Wl,-rpath,\${libdir}")
else()
  set(VANTREL_PC_RPATH "")
endif()
configure_file("${PROJECT_SOURCE_DIR}/cmake/VantrelBaseNet.pc.in" "${PROJECT_BINARY_DIR}/VantrelBaseNet.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/VantrelBaseNet.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT Development)

if(TARGET vantrel-netd)
  install(TARGETS vantrel-netd RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT Runtime)
  install(FILES "${PROJECT_SOURCE_DIR}/docs/daemon.md" DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT Runtime)
  install(FILES "${PROJECT_SOURCE_DIR}/examples/vantrel-netd.toml" "${PROJECT_SOURCE_DIR}/debian/vantrel-netd.service"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}/examples" COMPONENT Runtime)

  # Manual pages from their scdoc sources in docs/man.
  find_program(SCDOC_PROGRAM scdoc)
  if(SCDOC_PROGRAM)
    foreach(page vantrel-netd.8 vantrel-netd.toml.5)
      string(REGEX MATCH "[0-9]$" section "${page}")
      add_custom_command(OUTPUT "${PROJECT_BINARY_DIR}/man/${page}"
        COMMAND "${CMAKE_COMMAND}" -E make_directory "${PROJECT_BINARY_DIR}/man"
        COMMAND "${SCDOC_PROGRAM}" < "${PROJECT_SOURCE_DIR}/docs/man/${page}.scd" > "${PROJECT_BINARY_DIR}/man/${page}"
        DEPENDS "${PROJECT_SOURCE_DIR}/docs/man/${page}.scd"
        COMMENT "Manual page ${page}")
      list(APPEND VANTREL_MAN_PAGES "${PROJECT_BINARY_DIR}/man/${page}")
      install(FILES "${PROJECT_BINARY_DIR}/man/${page}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}" COMPONENT Runtime)
    endforeach()
    add_custom_target(vantrel-netd-man ALL DEPENDS ${VANTREL_MAN_PAGES})
  else()
    message(STATUS "scdoc not found: the manual pages are not built (scripts/setup installs it)")
  endif()
endif()
