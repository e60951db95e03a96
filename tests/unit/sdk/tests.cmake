kest_test(unit_sdk SINGLE_THREADED
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/object_test.cpp ${CMAKE_CURRENT_LIST_DIR}/refusal_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/registry_test.cpp
  LIBS tolm)
