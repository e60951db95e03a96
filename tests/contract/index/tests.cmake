# The browser index through the module's binary interface.
find_package(EXPAT REQUIRED)
kest_test(contract_index
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/directives_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/entry_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/failures_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/golden_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/identity_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/listing_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/request_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/site.cpp
  LIBS kest_harness EXPAT::EXPAT)

# What the heap holds meanwhile, which a sanitizer does not tell.
kest_test(contract_index_memory SINGLE_THREADED PLAIN
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/large_folder_test.cpp ${CMAKE_CURRENT_LIST_DIR}/site.cpp
  LIBS kest_harness EXPAT::EXPAT)

target_compile_definitions(contract_index PRIVATE
  SHIPPED_TEMPLATES="${PROJECT_SOURCE_DIR}/web/templates")
