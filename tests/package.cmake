# Installs this build and builds a consumer against the installed package; not
# with sanitizers, whose runtime a plain consumer does not load first.
if(NOT USERLOG_SANITIZE)
    add_test(NAME package COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/consumer/check.sh ${CMAKE_BINARY_DIR})
    set_tests_properties(package PROPERTIES LABELS package TIMEOUT 120)
endif()
