vtcore_add_gtest(system_dot_api_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/dot_api_test.cpp)
