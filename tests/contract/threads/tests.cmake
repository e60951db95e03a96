# A sanitizer's own calls would be found, too.
if(NOT KEST_SANITIZE)
  kest_test(contract_threads PLAIN SOURCES ${CMAKE_CURRENT_LIST_DIR}/thread_locals_test.cpp)
  target_compile_definitions(contract_threads PRIVATE
    KESTD="$<TARGET_FILE:kestd>" LIBTOLM="$<TARGET_FILE:tolm>"
    KESTDAV="$<TARGET_FILE:kestdav>" FILESTORE="$<TARGET_FILE:filestore>")
  add_dependencies(contract_threads kestd tolm kestdav filestore)
endif()
