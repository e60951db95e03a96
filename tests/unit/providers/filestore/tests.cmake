kest_test(filestore_unit_test SHARDS 4
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/names_test.cpp ${CMAKE_CURRENT_LIST_DIR}/ownertext_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/store_test.cpp ${CMAKE_CURRENT_LIST_DIR}/failures_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/upload_test.cpp ${CMAKE_CURRENT_LIST_DIR}/metadata_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/upgrade_test.cpp ${CMAKE_CURRENT_LIST_DIR}/replace_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/linkwalk_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/mounted_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/room_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/looks_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/parsed_paths_test.cpp ${CMAKE_CURRENT_LIST_DIR}/etag_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/property_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/upload_record_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/pending_upload_test.cpp
  LIBS filestore_objects)
# Apart from the others: it has system calls of its own.
kest_test(filestore_posixfs_test SINGLE_THREADED
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/posixfs_test.cpp ${CMAKE_CURRENT_LIST_DIR}/system_calls.cpp
  LIBS filestore_objects ${CMAKE_DL_LIBS})
# Without the store: the header's grammar and what it decides.
kest_test(ifheader_test SINGLE_THREADED
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/ifheader_test.cpp
          ${PROJECT_SOURCE_DIR}/providers/filestore/ifheader.cpp
  LIBS kest_base)
