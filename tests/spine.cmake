# The spine: file resolution and retention, connection banners, the facade.
userlog_add_test(tst_logfiles WHITEBOX SOURCES tst_logfiles.cpp LABELS spine)
userlog_add_test(tst_facade SOURCES tst_facade.cpp LABELS spine SCENARIOS facade noApplication)
