# Packages made by CPack from an install (./run.sh package):
#   Linux:   two Debian packages, libvarnor.userlog1 (the shared library) and
#            libvarnor.userlog-dev (headers, CMake package, pkg-config, qmake);
#            built against Qt 6, libvarnor.userlog-qt6-1 and
#            libvarnor.userlog-qt6-dev, which install beside them;
#   Windows: an SDK zip of the MinGW build with the runtime DLLs it needs.
set(CPACK_PACKAGE_NAME varnor-userlog${userlog_suffix})
set(CPACK_PACKAGE_VENDOR "Varnor")
set(CPACK_PACKAGE_CONTACT "Varnor userlog team <userlog@varnor.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "user log library of the robot teach pendant, Qt ${USERLOG_QT_MAJOR_VERSION} build")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON) # no debug information in what is shipped
set(CPACK_COMPONENTS_ALL runtime dev)

if(WIN32)
    set(CPACK_GENERATOR ZIP)
    set(CPACK_PACKAGE_FILE_NAME
        varnor-userlog${userlog_suffix}-${PROJECT_VERSION}-windows-x64-mingw)
    set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF) # one zip with both components
    # The MinGW runtime the DLL was linked against, from the compiler itself, without
    # the debug information Debian's copies carry (libstdc++-6.dll: 23 MB with it).
    foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
            OUTPUT_VARIABLE dll_path OUTPUT_STRIP_TRAILING_WHITESPACE)
        set(stripped ${CMAKE_CURRENT_BINARY_DIR}/mingw-runtime/${dll})
        file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/mingw-runtime)
        execute_process(COMMAND ${CMAKE_STRIP} --strip-debug -o ${stripped} ${dll_path}
            COMMAND_ERROR_IS_FATAL ANY)
        install(FILES ${stripped} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
    endforeach()
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -dumpfullversion
        OUTPUT_VARIABLE userlog_gcc_version OUTPUT_STRIP_TRAILING_WHITESPACE)
    configure_file(cmake/package/windows-README.txt.in ${CMAKE_CURRENT_BINARY_DIR}/README.txt
        @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/README.txt DESTINATION . COMPONENT dev)
else()
    set(CPACK_GENERATOR DEB)
    set(CPACK_DEB_COMPONENT_INSTALL ON)
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_PACKAGE_SECTION libs)
    set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
    set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://varnor.invalid/userlog")
    # A library name that ends in a digit takes a hyphen before the soversion.
    set(userlog_lib_name libvarnor.userlog${userlog_suffix})
    if(userlog_suffix)
        set(userlog_runtime_package ${userlog_lib_name}-${PROJECT_VERSION_MAJOR})
    else()
        set(userlog_runtime_package ${userlog_lib_name}${PROJECT_VERSION_MAJOR})
    endif()
    set(userlog_dev_package ${userlog_lib_name}-dev)
    if(USERLOG_QT_MAJOR_VERSION STREQUAL "6")
        set(userlog_qt_dev_package "qt6-base-dev (>= 6.4)")
    else()
        set(userlog_qt_dev_package "qtbase5-dev (>= 5.15)")
    endif()
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${userlog_runtime_package})
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON) # Qt and C++ runtime, computed
    # The shlibs file and the ldconfig trigger that a shared library package
    # needs; CPack's own shlibs option calls ldconfig from maintainer scripts.
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/debian/shlibs
        "${userlog_lib_name} ${PROJECT_VERSION_MAJOR} ${userlog_runtime_package} (>= ${PROJECT_VERSION})\n")
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
        ${CMAKE_CURRENT_BINARY_DIR}/debian/triggers ${CMAKE_CURRENT_BINARY_DIR}/debian/shlibs)
    set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
    # CPack puts the summary first and indents these, the extended descriptions.
    set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "The host application of a robot teach pendant hands log entries, controller
connection changes and bcc link reports to one class, UserLog. The library
writes them as lines into the user log, dated print files and the bcc log,
on a thread of its own. Built against Qt ${USERLOG_QT_MAJOR_VERSION}.")
    set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${userlog_dev_package})
    set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
    set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
        "${userlog_runtime_package} (= ${PROJECT_VERSION}), ${userlog_qt_dev_package}")
    set(CPACK_DEBIAN_DEV_DESCRIPTION "Headers and the files that link the library built against Qt ${USERLOG_QT_MAJOR_VERSION}:
a CMake package (find_package(${userlog_package}), target Varnor::UserLog), a
pkg-config file (${userlog_pkgconfig_module}) and a qmake feature
(CONFIG += ${userlog_feature}).")

    # Each package's doc directory holds a copyright file and a compressed changelog
    # (changelog.gz: the version has no Debian revision, a native package).
    find_program(GZIP_EXECUTABLE gzip REQUIRED)
    file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/debian)
    execute_process(COMMAND ${GZIP_EXECUTABLE} -9 -n -c
        ${CMAKE_CURRENT_SOURCE_DIR}/cmake/package/changelog
        OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.gz)
    foreach(pair runtime:${userlog_runtime_package} dev:${userlog_dev_package})
        string(REPLACE ":" ";" pair ${pair})
        list(GET pair 0 component)
        list(GET pair 1 package)
        install(FILES cmake/package/copyright ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.gz
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
    endforeach()
endif()

include(CPack)
