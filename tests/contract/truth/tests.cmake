# A whole server over things that fail, in each of its dialects.
foreach(dialect classic standard)
if(dialect STREQUAL classic)
  set(truth contract_truth)
else()
  set(truth contract_truth_${dialect})
endif()
kest_test(${truth} SHARDS 4
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/world.cpp ${CMAKE_CURRENT_LIST_DIR}/requests.cpp
          ${CMAKE_CURRENT_LIST_DIR}/standard_requests.cpp
          ${CMAKE_CURRENT_LIST_DIR}/failing_memory.cpp
          ${PROJECT_SOURCE_DIR}/tests/unit/providers/filestore/system_calls.cpp
          ${CMAKE_CURRENT_LIST_DIR}/files_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/interruptions_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/memory_test.cpp
  LIBS kestd_services kestd_http filestore_objects tolm OpenSSL::SSL OpenSSL::Crypto
       Threads::Threads ${CMAKE_DL_LIBS})
target_compile_definitions(${truth} PRIVATE
  TRUTH_DIALECT="${dialect}"
  KESTDAV_LIBRARY="$<TARGET_FILE:kestdav>"
  TEMPLATE_DIRECTORY="${PROJECT_SOURCE_DIR}/web/templates/")
add_dependencies(${truth} kestdav)
endforeach()
