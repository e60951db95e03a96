find_package(OpenSSL REQUIRED)
find_package(Threads REQUIRED)

kest_test(host_contract SHARDS 4
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/http/hostile_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/module/bodies_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/module/call_context_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/module/failures_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/module/interim_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/module/kest_io_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/module/replies_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/module/send_file_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/module/store_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/net/connection_limits_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/net/leaving_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/net/limits_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/net/proxies_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/net/sign_in_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/net/tls_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/pipeline/condition_headers_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/pipeline/copy_move_headers_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/pipeline/dialect_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/pipeline/error_page_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/pipeline/granted_lock_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/pipeline/plain_http_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/pipeline/rules_test.cpp
  LIBS kestd_http kestd_services tolm OpenSSL::SSL Threads::Threads)

# A program of its own: it takes the place of the allocator.
kest_test(host_lock_memory PLAIN
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/pipeline/lock_memory_test.cpp
          ${PROJECT_SOURCE_DIR}/tests/contract/truth/failing_memory.cpp
  LIBS kestd_http tolm OpenSSL::SSL Threads::Threads)

# A program of its own: it takes the place of the allocator and of epoll_ctl.
kest_test(host_accept
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/net/accept_test.cpp
  LIBS kestd_http tolm OpenSSL::SSL Threads::Threads)

kest_test(contract_host_components
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/components/directory_ldap_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/components/identity_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/components/ldap_source_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/components/slapd.cpp
    ${CMAKE_CURRENT_LIST_DIR}/components/slots_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/components/util_test.cpp
  LIBS kestd_services tolm)

# What the module says alone, and by way of the server.
kest_test(contract_host_classic
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/pipeline/classic_replies_test.cpp
  LIBS kest_harness kestd_http tolm OpenSSL::SSL Threads::Threads)
target_compile_definitions(contract_host_classic PRIVATE
  TEMPLATE_DIRECTORY="${PROJECT_SOURCE_DIR}/web/templates/")

# A program of its own: it takes the place of the allocator.
kest_test(host_sign_in_memory PLAIN
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/auth/sign_in_memory_test.cpp
          ${PROJECT_SOURCE_DIR}/tests/contract/truth/failing_memory.cpp
  LIBS kestd_services tolm)
