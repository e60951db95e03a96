file(GLOB base_tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*_test.cpp)
kest_test(unit_base SINGLE_THREADED SOURCES ${base_tests} LIBS kest_base)
