# Application information and the exception report that shows it.
vtcore_add_gtest(test_appinfo SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/appinfo_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/exception_report_test.cpp)
if(VTCORE_SANITIZER)
  target_compile_definitions(test_appinfo PRIVATE VTCORE_TEST_SANITIZED=1)
endif()
