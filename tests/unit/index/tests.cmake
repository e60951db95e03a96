# The pieces of the index and of the form reader that need no host.
kest_test(unit_index SINGLE_THREADED
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/calendar_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/clientmode_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/filter_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/fdn_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/../methods/multipart_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/nodes_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/platform.cpp
    ${CMAKE_CURRENT_LIST_DIR}/text_test.cpp
  LIBS kestdav_objects tolm)
