kest_test(ifheader_test
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/ifheader_test.cpp
          ${PROJECT_SOURCE_DIR}/providers/filestore/ifheader.cpp)
