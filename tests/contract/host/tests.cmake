find_package(OpenSSL REQUIRED)
find_package(Threads REQUIRED)

kest_test(host_contract
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/failures_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/hostile_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/granted_lock_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/io_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/leaving_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/limits_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/preconditions_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/range_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/relocation_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/rules_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/store_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tls_test.cpp
  LIBS kestd_front tolm OpenSSL::SSL Threads::Threads)

# A program of its own: it takes the place of the allocator and of epoll_ctl.
kest_test(host_accept
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/accept_test.cpp
  LIBS kestd_front tolm OpenSSL::SSL Threads::Threads)
