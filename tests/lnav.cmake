# The lnav format (tools/lnav) read back by lnav, where lnav is installed;
# ./run.sh test installs it.
find_program(LNAV_EXECUTABLE lnav)
if(TARGET userlog-host AND LNAV_EXECUTABLE)
    userlog_add_test(tst_lnav SOURCES tst_lnav.cpp LABELS lnav)
    target_compile_definitions(tst_lnav PRIVATE USERLOG_HOST="$<TARGET_FILE:userlog-host>"
        LNAV="${LNAV_EXECUTABLE}"
        LNAV_FORMAT="${PROJECT_SOURCE_DIR}/tools/lnav/varnor_userlog.json"
        LNAV_SCENARIO="${CMAKE_CURRENT_SOURCE_DIR}/lnav.scenario")
    add_dependencies(tst_lnav userlog-host)
elseif(TARGET userlog-host)
    message(STATUS "lnav not found: tst_lnav is not registered")
endif()
