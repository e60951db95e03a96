kest_test(contract_lock SINGLE_THREADED
  SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/lock_refusals_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/lock_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/unlock_test.cpp
  LIBS kest_harness)
