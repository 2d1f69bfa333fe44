# Installs this build into a temporary prefix and builds and runs a separate
# consumer project against the installed package. Not in sanitizer builds: their
# library needs its sanitizer runtime loaded first, which a plain consumer lacks.
if(NOT USERLOG_SANITIZE)
    add_test(NAME package
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/consumer/check.sh ${CMAKE_BINARY_DIR})
    set_tests_properties(package PROPERTIES LABELS package TIMEOUT 120)
endif()
