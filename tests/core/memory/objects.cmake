# Object layer, singletons, flyweights, callback list and notifications.
vtcore_add_gtest(test_objects SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/object_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/singleton_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/flyweight_test.cpp)
