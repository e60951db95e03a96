# The standard dialect, against scripted hosts and providers.
# Each case loads a module of its own, which stays: in one process they take 14 GiB with a sanitizer.
kest_test(contract_standard SINGLE_THREADED SHARDS 8
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/bounds_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/conditions_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/digest_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/failure_codes_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/get_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/granted_lock_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/namespace_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/post_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/put_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/refusals_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/relocation_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/lock_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/propfind_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/proppatch_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/sweeps_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/upload_failures_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/uploads_test.cpp
  LIBS kest_harness
)
target_compile_definitions(contract_standard PRIVATE
  TEMPLATE_DIRECTORY="${PROJECT_SOURCE_DIR}/web/templates/")
