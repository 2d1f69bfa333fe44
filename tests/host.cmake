# userlog-host end to end; tst_host also runs itself as a host that quits busy.
if(TARGET userlog-host)
    userlog_add_test(tst_host SOURCES tst_host.cpp
        SCENARIOS exampleShiftWithSettings badLine quitWithoutLoss LABELS host)
    target_compile_definitions(tst_host PRIVATE USERLOG_HOST="$<TARGET_FILE:userlog-host>"
        USERLOG_EXAMPLES="${PROJECT_SOURCE_DIR}/examples/shift.scenario")
    add_dependencies(tst_host userlog-host)
endif()
