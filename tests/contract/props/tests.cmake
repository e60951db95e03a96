kest_test(contract_props SHARDS 2
  SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/propfind_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/deadprops_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/proppatch_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/concurrency_test.cpp
  LIBS kest_harness)
