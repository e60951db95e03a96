# libtolm.so as a binary: its tables of operations, its exports, what it needs.
kest_test(contract_platform
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/exports_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/slots_test.cpp
  LIBS tolm)
target_compile_definitions(contract_platform PRIVATE TOLM_LIBRARY="$<TARGET_FILE:tolm>")
