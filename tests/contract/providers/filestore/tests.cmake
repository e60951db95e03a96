find_package(SQLite3 REQUIRED) # whose steps a test counts
kest_test(filestore_contract_test SHARDS 2
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/fixture.cpp ${CMAKE_CURRENT_LIST_DIR}/content_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/listing_test.cpp ${CMAKE_CURRENT_LIST_DIR}/locks_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/lock_conditions_test.cpp ${CMAKE_CURRENT_LIST_DIR}/lookups_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/properties_test.cpp ${CMAKE_CURRENT_LIST_DIR}/trees_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/walks_test.cpp ${CMAKE_CURRENT_LIST_DIR}/conditions_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/content3_test.cpp ${CMAKE_CURRENT_LIST_DIR}/namespace3_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/properties3_test.cpp ${CMAKE_CURRENT_LIST_DIR}/locks3_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/uploads3_test.cpp ${CMAKE_CURRENT_LIST_DIR}/lock_listing_test.cpp
  LIBS tolm SQLite::SQLite3 ${CMAKE_DL_LIBS})
target_compile_definitions(filestore_contract_test PRIVATE FILESTORE_LIBRARY="$<TARGET_FILE:filestore>")
add_dependencies(filestore_contract_test filestore)

# The module and the store in one process, over seams that fail.
kest_test(filestore_faults_test SINGLE_THREADED THOROUGH SHARDS 4
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/faults.cpp ${CMAKE_CURRENT_LIST_DIR}/faults_module.cpp
          ${CMAKE_CURRENT_LIST_DIR}/relocation_test.cpp
  LIBS kest_harness filestore_objects)

# The same without the module, with memory that fails as well.
kest_test(filestore_faults3_test SINGLE_THREADED PLAIN THOROUGH SHARDS 4
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/faults.cpp ${CMAKE_CURRENT_LIST_DIR}/faults_module.cpp
          ${CMAKE_CURRENT_LIST_DIR}/faults3_test.cpp
          ${PROJECT_SOURCE_DIR}/tests/contract/truth/failing_memory.cpp
  LIBS kest_harness filestore_objects)
