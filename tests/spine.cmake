# The spine: file resolution and retention, connection banners, the facade.
userlog_add_test(tst_logfiles WHITEBOX SOURCES tst_logfiles.cpp LABELS spine)
userlog_add_test(tst_connection WHITEBOX SOURCES tst_connection.cpp LABELS spine)
userlog_add_test(tst_facade SOURCES tst_facade.cpp LABELS spine
    SCENARIOS singleInstance signalIndexes connectedWithController hostConnections
              flushOnLogThread flushWithBlockedWriter)
userlog_add_test(tst_facade_noapp SOURCES tst_facade_noapp.cpp LABELS spine)
