kest_test(contract_methods SINGLE_THREADED SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/copy_collection_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/copy_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/delete_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/extent_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/failures_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/form.cpp
  ${CMAKE_CURRENT_LIST_DIR}/form_hostile_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/form_preferences_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/form_refusals_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/form_upload_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/get_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/head_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/move_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/put_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../index/site.cpp
  LIBS kest_harness SHARDS 2)
