kest_test(unit_host_services
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/arguments_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/attributes_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/authenticator_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/dates_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/events_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/gatekeeper_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/object_store_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/sessions_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/settings_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/text_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/users_test.cpp
  LIBS kestd_commands kestd_services tolm)
target_compile_definitions(unit_host_services PRIVATE
  KEST_SAMPLE="${PROJECT_SOURCE_DIR}/packaging/kest.toml")
