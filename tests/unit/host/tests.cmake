file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*/*_test.cpp)
set(threaded ${sources}) # those that start threads, or test what does
list(FILTER threaded INCLUDE REGEX "/host/(auth|components|metrics|net)/")
list(REMOVE_ITEM sources ${threaded})
kest_test(unit_host_threads SOURCES ${threaded} LIBS kestd_commands tolm)
kest_test(unit_host SINGLE_THREADED SOURCES ${sources} LIBS kestd_commands tolm)
target_compile_definitions(unit_host PRIVATE
  KEST_SAMPLE="${PROJECT_SOURCE_DIR}/packaging/kest.toml")
