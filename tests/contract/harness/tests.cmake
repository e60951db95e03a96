find_package(EXPAT REQUIRED)

# The harness of the contract tests: scripted host and providers around the built module.
add_library(kest_harness STATIC
  ${CMAKE_CURRENT_LIST_DIR}/io.cpp
  ${CMAKE_CURRENT_LIST_DIR}/opened_collection.cpp
  ${CMAKE_CURRENT_LIST_DIR}/opened_resource.cpp
  ${CMAKE_CURRENT_LIST_DIR}/platform.cpp
  ${CMAKE_CURRENT_LIST_DIR}/provider.cpp
  ${CMAKE_CURRENT_LIST_DIR}/provider_tree.cpp
  ${CMAKE_CURRENT_LIST_DIR}/provider3.cpp
  ${CMAKE_CURRENT_LIST_DIR}/resource3.cpp
  ${CMAKE_CURRENT_LIST_DIR}/collection3.cpp
  ${CMAKE_CURRENT_LIST_DIR}/records3.cpp
  ${CMAKE_CURRENT_LIST_DIR}/recorder.cpp
  ${CMAKE_CURRENT_LIST_DIR}/services.cpp
  ${CMAKE_CURRENT_LIST_DIR}/session_services.cpp
  ${CMAKE_CURRENT_LIST_DIR}/text.cpp
  ${CMAKE_CURRENT_LIST_DIR}/uploads3.cpp
  ${CMAKE_CURRENT_LIST_DIR}/world.cpp
  ${CMAKE_CURRENT_LIST_DIR}/xml_reply.cpp)
target_include_directories(kest_harness PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(kest_harness PUBLIC kest_contract tolm GTest::gtest GTest::gmock PRIVATE kest_flags kest_test_flags EXPAT::EXPAT ${CMAKE_DL_LIBS})
target_compile_definitions(kest_harness PRIVATE KESTDAV_LIBRARY="$<TARGET_FILE:kestdav>")
add_dependencies(kest_harness kestdav)

kest_test(contract_harness SINGLE_THREADED SOURCES ${CMAKE_CURRENT_LIST_DIR}/harness_test.cpp LIBS kest_harness)
