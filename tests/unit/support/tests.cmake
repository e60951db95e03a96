# Logic of the WebDAV module that needs no host: its sources are compiled into the tests.
kest_test(unit_module_escape SINGLE_THREADED
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/escape_test.cpp ${PROJECT_SOURCE_DIR}/support/escape.cpp
          ${PROJECT_SOURCE_DIR}/support/failure_report.cpp
  LIBS tolm)
