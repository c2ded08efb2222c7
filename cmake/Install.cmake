# The installed layout, the CMake package and pkg-config file for hosts, and the Debian package:
#   lib/<multiarch>/devlaser/libDevLaser.so.<version>   the plug-in
#   include/devlaser/{host,api,frame}/...                 the public headers (host interfaces, plug-in API, record)
#   lib/<multiarch>/cmake/DevLaser/                      find_package(DevLaser) -> DevLaser::DevLaser
#   lib/<multiarch>/pkgconfig/devlaser.pc
#   bin/laserctl, bin/<simulators>                       finding the plug-in relative to their own folder
#   share/devlaser/{locale,examples}, share/man/man1/laserctl.1, share/bash-completion/completions/laserctl
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(DEVLASER_PLUGIN_DIR ${CMAKE_INSTALL_LIBDIR}/devlaser)
set(DEVLASER_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/DevLaser)

set_target_properties(DevLaser PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
target_include_directories(DevLaser INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/devlaser>)
install(TARGETS DevLaser EXPORT DevLaserTargets LIBRARY DESTINATION ${DEVLASER_PLUGIN_DIR} COMPONENT plugin)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/host/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/devlaser/host COMPONENT dev
        FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_SOURCE_DIR}/DevLaser/api/DevLaserPlugin.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/devlaser/api
        COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/DevLaser/frame/LaserParams.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/devlaser/frame COMPONENT dev)

install(EXPORT DevLaserTargets NAMESPACE DevLaser:: DESTINATION ${DEVLASER_CMAKE_DIR} COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/package/DevLaserConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/DevLaserConfig.cmake INSTALL_DESTINATION ${DEVLASER_CMAKE_DIR}
                              PATH_VARS DEVLASER_PLUGIN_DIR)
# Before 1.0 a minor version may change the host interfaces, so only the same minor version is compatible.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/DevLaserConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/DevLaserConfig.cmake ${PROJECT_BINARY_DIR}/DevLaserConfigVersion.cmake
        DESTINATION ${DEVLASER_CMAKE_DIR} COMPONENT dev)

# Relative to the .pc file's own folder, so that an installation can be moved.
file(RELATIVE_PATH DEVLASER_PC_TO_PREFIX "/root/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/root")
configure_file(${PROJECT_SOURCE_DIR}/cmake/package/devlaser.pc.in ${PROJECT_BINARY_DIR}/devlaser.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/devlaser.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/locale/ DESTINATION ${CMAKE_INSTALL_DATADIR}/devlaser/locale COMPONENT plugin)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/devlaser COMPONENT plugin)
if(DEVLASER_BUILD_TOOLS)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${CMAKE_INSTALL_DATADIR}/devlaser/examples)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/laserctl/laserctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/laserctl/laserctl.bash-completion
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME laserctl)
endif()

# cpack -G DEB: one package with the plug-in, its headers, laserctl and the simulators.
set(CPACK_PACKAGE_NAME devlaser)
set(CPACK_PACKAGE_VENDOR "DevLaser developers")
set(CPACK_PACKAGE_CONTACT "DevLaser developers <devlaser@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Laser-source driver plug-in of a CNC laser-cutting controller, with laserctl")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
