# The platform layer, through libtolm.so as everybody else uses it.
add_library(platform_support STATIC ${CMAKE_CURRENT_LIST_DIR}/support.cpp)
target_include_directories(platform_support PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(platform_support PUBLIC kest_contract tolm GTest::gtest PRIVATE kest_flags)

kest_test(unit_platform
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/codepage_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/memory_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/registry_read_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/registry_write_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/strings_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/sync_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/work_test.cpp
  LIBS platform_support)
