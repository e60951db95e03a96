kest_test(contract_core SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/config_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/dispatcher_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/lifecycle_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/lockheader_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/resolution_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/session_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/stranger_test.cpp
  LIBS kest_harness)
