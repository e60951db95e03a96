# The standard dialect's readers of headers: pure functions, no host and no provider.
kest_test(unit_standard SINGLE_THREADED
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/conditions_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/digest_headers_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/entity_tag_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ranges_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/upload_headers_test.cpp
    ${PROJECT_SOURCE_DIR}/standard/conditions.cpp
    ${PROJECT_SOURCE_DIR}/standard/digest_headers.cpp
    ${PROJECT_SOURCE_DIR}/standard/entity_tag.cpp
    ${PROJECT_SOURCE_DIR}/standard/ranges.cpp
    ${PROJECT_SOURCE_DIR}/standard/upload_headers.cpp
)

# Its readers of headers and bodies that need a host's memory.
kest_test(unit_standard_readers SINGLE_THREADED
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/if_header_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/readers_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/upload_fields_test.cpp
  LIBS kestdav_objects kest_harness)
