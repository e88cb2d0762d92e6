# Object layer, singletons, flyweights, callback list and notifications.
vtcore_add_gtest(test_objects SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/object_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/singleton_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/flyweight_test.cpp)
vtcore_add_gtest(test_callback_list SOURCES ${CMAKE_CURRENT_LIST_DIR}/add_remove_iterate_list_test.cpp)
vtcore_add_gtest(test_low_memory SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/low_memory_notification_center_test.cpp)
if(VTCORE_SANITIZER)
  target_compile_definitions(test_low_memory PRIVATE VTCORE_TEST_SANITIZED=1)
endif()
