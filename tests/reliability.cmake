# Reliability: hostile input and file-system faults through the public API (each
# scenario with a fresh singleton in a process of its own), many host threads at
# once, and randomised checks of the two file resolvers. The tests compare bytes
# written in the locale's encoding, so the locale is pinned.
userlog_add_test(tst_property_resolvers WHITEBOX
    SOURCES tst_property_resolvers.cpp tst_reliability_mount.cpp LABELS reliability)
userlog_add_test(tst_reliability_input SOURCES tst_reliability_input.cpp
    SCENARIOS hugeMessage hugeBatch oddCharacters levels emptyFields bccAddresses
    oddCharactersInBccReport customLogName:empty customLogName:long customLogName:too-long
    customLogName:subdirectory customLogName:missing-subdirectory customLogName:parent
    LABELS reliability)
userlog_add_test(tst_reliability_faults SOURCES tst_reliability_faults.cpp tst_reliability_mount.cpp
    LABELS reliability)
userlog_add_test(tst_reliability_load SOURCES tst_reliability_load.cpp LABELS reliability)
get_property(reliability_tests DIRECTORY PROPERTY TESTS)
list(FILTER reliability_tests INCLUDE REGEX "^tst_(reliability|property)")
set_tests_properties(${reliability_tests} PROPERTIES ENVIRONMENT LC_ALL=C.UTF-8)
