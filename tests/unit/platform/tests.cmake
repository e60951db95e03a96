# The platform layer, through libtolm.so as everybody else uses it.
add_library(platform_support STATIC ${CMAKE_CURRENT_LIST_DIR}/support.cpp)
target_include_directories(platform_support PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(platform_support PUBLIC kest_contract tolm GTest::gtest PRIVATE kest_flags kest_test_flags)

# Libraries for the class manager to load: one that works and two that do not.
set(kind 0)
foreach(name component_good component_declines component_empty)
  add_library(${name} MODULE ${CMAKE_CURRENT_LIST_DIR}/component.cpp)
  target_compile_definitions(${name} PRIVATE COMPONENT_KIND=${kind})
  target_link_libraries(${name} PRIVATE kest_contract kest_flags kest_test_flags)
  math(EXPR kind "${kind} + 1")
endforeach()

kest_test(unit_platform
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/classes_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/memory_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/registry_read_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/sync_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/work_test.cpp
  LIBS platform_support)
target_compile_definitions(unit_platform PRIVATE
  COMPONENT_GOOD="$<TARGET_FILE:component_good>"
  COMPONENT_DECLINES="$<TARGET_FILE:component_declines>"
  COMPONENT_EMPTY="$<TARGET_FILE:component_empty>")
add_dependencies(unit_platform component_good component_declines component_empty)

kest_test(unit_platform_values SINGLE_THREADED
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/codepage_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/registry_write_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/strings_test.cpp
  LIBS platform_support)

# What the library does not export.
kest_test(unit_platform_log SOURCES ${CMAKE_CURRENT_LIST_DIR}/log_test.cpp
  LIBS tolm_objects kest_contract Threads::Threads)

# A process of its own: it runs out of memory on purpose.
kest_test(unit_platform_faults SINGLE_THREADED SOURCES ${CMAKE_CURRENT_LIST_DIR}/faults_test.cpp
  LIBS platform_support)
