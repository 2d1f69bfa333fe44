# User log recording, each function in a process of its own (the facade is a singleton).
userlog_add_test(tst_recording SOURCES tst_recording.cpp WHITEBOX LABELS recording
    SCENARIOS levelTagsAndPrintCopies failedEventIsDroppedAndWriterRecovers
    entriesFollowQueuedConnectionReports concurrentHostThreadsLoseNothing)
