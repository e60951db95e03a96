# Logic of the module's frame, its methods and its support, compiled into the test as the module has it.
kest_test(unit_core SINGLE_THREADED SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/cacheentry_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/factory_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/guidtext_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../support/locktoken_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/providers_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../methods/ranges_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../support/requestpath_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/settings_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/status_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../methods/statuslist_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../support/storeuri_test.cpp
  LIBS kestdav_objects kest_harness)
