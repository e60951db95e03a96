kest_test(contract_host_services
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/slots_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/util_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/identity_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ldap_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/slapd.cpp
  LIBS kestd_services tolm)
