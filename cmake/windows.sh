# shellcheck shell=bash
# The Windows cross build and Wine, for run.sh. Sourced, not run; needs tools/common.sh.

windows_packages=(build-essential cmake xz-utils g++-mingw-w64-x86-64-posix wine wine64)

# windows_cmake_args DIR: the CMake arguments of a cross build in DIR, after
# making DIR/qt a Qt for Windows (cmake/qt-mingw.sh, cached).
windows_cmake_args() {
    local dir=$1
    JOBS=${jobs:-2} ./cmake/qt-mingw.sh "$dir/qt" >&2
    # The toolchain file counts at the first configure only; passed again, CMake
    # would warn that it went unused.
    [ -f "$dir/CMakeCache.txt" ] || echo "-DCMAKE_TOOLCHAIN_FILE=$PWD/cmake/mingw-w64-x86_64.cmake"
    echo "-DUSERLOG_QT_PREFIX=$PWD/$dir/qt"
}

# The Windows name of a host path: Wine maps the host's / to Z:.
winpath() { printf 'Z:%s' "${1//\//\\}"; }

# wine_env DIR: exports what Wine needs to run DIR's programs: a prefix of its
# own in DIR, initialised once, and the Qt, MinGW runtime and library DLLs on its
# search path. The tests and the package test run through cmake/wine-run.sh.
wine_env() {
    local dir=$PWD/$1 dll search=""
    export WINEPREFIX=$dir/wine WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
    # Wine hands WINEQT_X to the program as QT_X: QtTest's output then goes to
    # stderr rather than the debugger channel that Wine has with no console.
    export WINEQT_FORCE_STDERR_LOGGING=1
    unset DISPLAY
    for dll in libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll; do
        dll=$(x86_64-w64-mingw32-g++-posix -print-file-name=$dll)
        search+=";$(winpath "$(dirname "$dll")")"
    done
    WINEPATH="$(winpath "$dir");$(winpath "$dir/qt/bin")$search"
    export WINEPATH
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
        say "initialising the Wine prefix $WINEPREFIX"
        wineboot -i >"$dir/wineboot.log" 2>&1
        # Temporary files in the build directory rather than in the prefix's
        # C:\users: one place to look, and gone with the build.
        local var
        for var in TEMP TMP; do
            wine reg add 'HKCU\Environment' /v $var /t REG_SZ /d "$(winpath "$dir/wine-tmp")" /f \
                >>"$dir/wineboot.log" 2>&1
        done
        wineserver -w
    fi
    rm -rf "$dir/wine-tmp"
    mkdir -p "$dir/wine-tmp"
}
