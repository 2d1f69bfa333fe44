# userlog-host end to end, and a host that quits with the log thread still busy.
if(TARGET userlog-host)
    add_executable(tst_host_quitchild tst_host_quitchild.cpp)
    target_link_libraries(tst_host_quitchild PRIVATE varnor.userlog)
    userlog_strict_warnings(tst_host_quitchild)

    userlog_add_test(tst_host SOURCES tst_host.cpp
        SCENARIOS exampleShift badLine settingsAndDefaultRoot quitWithoutLoss
        LABELS host)
    target_compile_definitions(tst_host PRIVATE
        USERLOG_HOST="$<TARGET_FILE:userlog-host>"
        USERLOG_QUIT_CHILD="$<TARGET_FILE:tst_host_quitchild>"
        USERLOG_EXAMPLES_DIR="${PROJECT_SOURCE_DIR}/examples")
    add_dependencies(tst_host userlog-host tst_host_quitchild)
endif()
