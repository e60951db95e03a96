# A whole server over things that fail, in each of its dialects.
kest_test(contract_truth PLAIN THOROUGH SHARDS 4 VARIANTS classic standard
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/world.cpp ${CMAKE_CURRENT_LIST_DIR}/requests.cpp
          ${CMAKE_CURRENT_LIST_DIR}/standard_requests.cpp
          ${CMAKE_CURRENT_LIST_DIR}/failing_memory.cpp
          ${PROJECT_SOURCE_DIR}/tests/unit/providers/filestore/system_calls.cpp
          ${CMAKE_CURRENT_LIST_DIR}/files_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/interruptions_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/memory_test.cpp
  LIBS kestd_services kestd_http filestore_objects tolm OpenSSL::SSL OpenSSL::Crypto
       Threads::Threads ${CMAKE_DL_LIBS})
target_compile_definitions(contract_truth PRIVATE
  KESTDAV_LIBRARY="$<TARGET_FILE:kestdav>"
  TEMPLATE_DIRECTORY="${PROJECT_SOURCE_DIR}/web/templates/")
add_dependencies(contract_truth kestdav)
