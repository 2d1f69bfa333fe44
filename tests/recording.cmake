# User log recording: a writer driven directly, and the host's view through the
# public API (each scenario with a fresh singleton in a process of its own).
userlog_add_test(tst_recording SOURCES tst_recording.cpp WHITEBOX LABELS recording)
userlog_add_test(tst_recording_host SOURCES tst_recording_host.cpp
    SCENARIOS entriesFollowQueuedConnectionReports concurrentHostThreadsLoseNothing
    LABELS recording)
