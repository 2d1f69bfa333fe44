# Cross build for Windows x64 with MinGW-w64's posix-thread compilers (GCC 12
# has std::thread only with those), run under Wine.
#   -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake -DUSERLOG_QT_PREFIX=<Qt for Windows>
# ./run.sh windows builds that Qt (cmake/qt-mingw.sh) and passes its prefix.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# Try-compiles read this file again in a project of their own.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES USERLOG_QT_PREFIX)
if(NOT USERLOG_QT_PREFIX)
    message(FATAL_ERROR "set USERLOG_QT_PREFIX to the Qt for Windows to build against")
endif()

# Libraries and packages come from Qt's prefix and MinGW's sysroot only; programs
# (moc, rcc in that prefix are host programs) from the host too.
set(CMAKE_FIND_ROOT_PATH ${USERLOG_QT_PREFIX} /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine-run.sh)
