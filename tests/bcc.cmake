# Bcc connection log and TCP link watch through the public API, each scenario with
# a fresh singleton in a process of its own. The silent peer waits out four full
# probe timeouts, so it is registered apart with the "slow" label.
userlog_add_test(tst_bcc SOURCES tst_bcc.cpp
    SCENARIOS probeSeries reportStates unwritableLog
    LABELS bcc)
userlog_add_test(tst_bcc_slow SOURCES tst_bcc.cpp SCENARIOS silentPeer LABELS bcc slow)
