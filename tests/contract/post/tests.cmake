# POST through the module's binary interface.
kest_test(contract_post
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/form.cpp
    ${CMAKE_CURRENT_LIST_DIR}/hostile_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/preferences_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/upload_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/../index/site.cpp
  LIBS kest_harness)
