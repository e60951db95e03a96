kest_test(front_unit
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/byte_range_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/clients_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/fiber_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/framing_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/front_text_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/head_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/header_list_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/poller_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/preconditions_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/target_test.cpp
  LIBS kestd_front tolm)
