# The user-defaults store.
vtcore_add_gtest(user_defaults_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/user_defaults_test.cpp)
