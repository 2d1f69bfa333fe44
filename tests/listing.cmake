userlog_add_test(tst_dirlisting SOURCES tst_dirlisting.cpp WHITEBOX LABELS spine)
