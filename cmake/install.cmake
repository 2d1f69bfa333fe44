# Installs the library, its public headers and a CMake package, so that another
# project can say find_package(VarnorUserLog) and link Varnor::UserLog.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(userlog_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VarnorUserLog)

install(TARGETS varnor.userlog
    EXPORT VarnorUserLogTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
# Only the public header and the export-macro header it includes; the internal
# headers stay in the source tree.
install(FILES userlog/userlog.h userlog/userlog_global.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/userlog)

install(EXPORT VarnorUserLogTargets
    NAMESPACE Varnor::
    DESTINATION ${userlog_package_dir})
configure_package_config_file(cmake/VarnorUserLogConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/VarnorUserLogConfig.cmake
    INSTALL_DESTINATION ${userlog_package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/VarnorUserLogConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/VarnorUserLogConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/VarnorUserLogConfigVersion.cmake
    DESTINATION ${userlog_package_dir})

# The lnav format for reading a log tree as one timeline (tools/lnav/README.md).
install(FILES tools/lnav/varnor_userlog.json tools/lnav/README.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/varnor-userlog/lnav)
