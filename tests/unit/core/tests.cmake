# Logic of the module's frame, compiled into the test as the module has it.
kest_test(unit_core SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/cacheentry_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/factory_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/guidtext_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/locktoken_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/providers_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ranges_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/requestpath_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/settings_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/status_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/statuslist_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/storeuri_test.cpp
  LIBS kestdav_objects kest_harness)
