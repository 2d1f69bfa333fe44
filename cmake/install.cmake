# Installs the library, its public headers and three ways to link it: a CMake
# package (find_package(VarnorUserLog), Varnor::UserLog), a pkg-config file
# (varnor-userlog) and a qmake feature (CONFIG += varnor_userlog). Components:
# runtime (the shared library) and dev (everything a build needs).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(userlog_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VarnorUserLog)

install(TARGETS varnor.userlog
    EXPORT VarnorUserLogTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
# Only the public header and the export-macro header it includes; the internal
# headers stay in the source tree.
install(FILES userlog/userlog.h userlog/userlog_global.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/userlog COMPONENT dev)

install(EXPORT VarnorUserLogTargets
    NAMESPACE Varnor::
    DESTINATION ${userlog_package_dir} COMPONENT dev)
configure_package_config_file(cmake/VarnorUserLogConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/VarnorUserLogConfig.cmake
    INSTALL_DESTINATION ${userlog_package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/VarnorUserLogConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/VarnorUserLogConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/VarnorUserLogConfigVersion.cmake
    DESTINATION ${userlog_package_dir} COMPONENT dev)

# pkg-config and qmake find the prefix relative to their own file, so a package
# unpacked anywhere (a throwaway root, the Windows SDK zip) still links.
set(userlog_pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH userlog_prefix_from_pkgconfig
    /prefix/${userlog_pkgconfig_dir} /prefix)
configure_file(cmake/varnor-userlog.pc.in ${CMAKE_CURRENT_BINARY_DIR}/varnor-userlog.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/varnor-userlog.pc
    DESTINATION ${userlog_pkgconfig_dir} COMPONENT dev)

# Where Debian's qmake looks for features by itself; elsewhere a directory to
# name in QMAKEFEATURES.
if(CMAKE_INSTALL_LIBDIR MATCHES "^lib/.+-linux-gnu$")
    set(userlog_qmake_dir ${CMAKE_INSTALL_LIBDIR}/qt5/mkspecs/features)
else()
    set(userlog_qmake_dir ${CMAKE_INSTALL_DATADIR}/varnor-userlog/qmake)
endif()
file(RELATIVE_PATH userlog_prefix_from_qmake /prefix/${userlog_qmake_dir} /prefix)
configure_file(cmake/varnor_userlog.prf.in ${CMAKE_CURRENT_BINARY_DIR}/varnor_userlog.prf @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/varnor_userlog.prf
    DESTINATION ${userlog_qmake_dir} COMPONENT dev)

# The lnav format for reading a log tree as one timeline (tools/lnav/README.md).
install(FILES tools/lnav/varnor_userlog.json tools/lnav/README.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/varnor-userlog/lnav COMPONENT runtime)
