file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*/*_test.cpp)
kest_test(unit_host SOURCES ${sources} LIBS kestd_commands tolm)
target_compile_definitions(unit_host PRIVATE
  KEST_SAMPLE="${PROJECT_SOURCE_DIR}/packaging/kest.toml")
