set(sanitized 0)
if(KEST_SANITIZE)
  set(sanitized 1)
endif()
kest_test(contract_slots SINGLE_THREADED PLAIN SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/exports_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/slots_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/values_test.cpp)
target_compile_definitions(contract_slots PRIVATE KESTDAV_LIBRARY="$<TARGET_FILE:kestdav>"
  KEST_SANITIZED=${sanitized})
add_dependencies(contract_slots kestdav)
