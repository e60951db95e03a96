kest_test(contract_props SINGLE_THREADED SHARDS 2
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/deadprops_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/lockdiscovery_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/propfind_bodies_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/propfind_failures_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/propfind_names_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/propfind_root_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/propfind_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/proppatch_refusals_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/proppatch_test.cpp
  LIBS kest_harness)
kest_test(contract_props_threads SOURCES ${CMAKE_CURRENT_LIST_DIR}/concurrency_test.cpp
  LIBS kest_harness)
