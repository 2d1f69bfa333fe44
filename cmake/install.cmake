# Installs the library, its public headers and three ways to link it: a CMake
# package (find_package(VarnorUserLog), Varnor::UserLog), a pkg-config file
# (varnor-userlog) and a qmake feature (CONFIG += varnor_userlog); a Qt 6 build
# names them VarnorUserLogQt6 (the same Varnor::UserLog), varnor-userlog-qt6 and
# varnor_userlog_qt6. Components: runtime (the shared library) and dev
# (everything a build needs).
include(CMakePackageConfigHelpers)

string(REPLACE "-qt" "Qt" userlog_package "VarnorUserLog${userlog_suffix}")
string(REPLACE "-" "_" userlog_feature "varnor_userlog${userlog_suffix}")
set(userlog_pkgconfig_module varnor-userlog${userlog_suffix})
set(userlog_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${userlog_package})

install(TARGETS varnor.userlog
    EXPORT ${userlog_package}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
# Only the public header and the export-macro header it includes; the internal
# headers stay in the source tree.
install(FILES userlog/userlog.h userlog/userlog_global.h
    DESTINATION ${userlog_include_dir}/userlog COMPONENT dev)

install(EXPORT ${userlog_package}Targets
    NAMESPACE Varnor::
    DESTINATION ${userlog_package_dir} COMPONENT dev)
configure_package_config_file(cmake/VarnorUserLogConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/${userlog_package}Config.cmake
    INSTALL_DESTINATION ${userlog_package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/${userlog_package}ConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/${userlog_package}Config.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/${userlog_package}ConfigVersion.cmake
    DESTINATION ${userlog_package_dir} COMPONENT dev)

# pkg-config and qmake find the prefix relative to their own file, so a package
# unpacked anywhere (a throwaway root, the Windows SDK zip) still links.
set(userlog_pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH userlog_prefix_from_pkgconfig
    /prefix/${userlog_pkgconfig_dir} /prefix)
configure_file(cmake/varnor-userlog.pc.in
    ${CMAKE_CURRENT_BINARY_DIR}/${userlog_pkgconfig_module}.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${userlog_pkgconfig_module}.pc
    DESTINATION ${userlog_pkgconfig_dir} COMPONENT dev)

# Where Debian's qmake looks for features by itself; elsewhere a directory to
# name in QMAKEFEATURES.
if(CMAKE_INSTALL_LIBDIR MATCHES "^lib/.+-linux-gnu$")
    set(userlog_qmake_dir ${CMAKE_INSTALL_LIBDIR}/qt${USERLOG_QT_MAJOR_VERSION}/mkspecs/features)
else()
    set(userlog_qmake_dir ${userlog_data_dir}/qmake)
endif()
file(RELATIVE_PATH userlog_prefix_from_qmake /prefix/${userlog_qmake_dir} /prefix)
configure_file(cmake/varnor_userlog.prf.in ${CMAKE_CURRENT_BINARY_DIR}/${userlog_feature}.prf
    @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${userlog_feature}.prf
    DESTINATION ${userlog_qmake_dir} COMPONENT dev)

# The lnav format for reading a log tree as one timeline (tools/lnav/README.md).
install(FILES tools/lnav/varnor_userlog.json tools/lnav/README.md
    DESTINATION ${userlog_data_dir}/lnav COMPONENT runtime)
