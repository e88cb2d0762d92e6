# UTF-8 strings and the web/XML conversions; libxml2 is the peer of the XML
# round trip.
find_package(LibXml2 REQUIRED)
vtcore_add_gtest(utf8_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/utf8_test.cpp)
vtcore_add_gtest(utf8_differential_test
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/utf8_differential_test.cpp)
vtcore_add_gtest(string_extension_test
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/string_extension_test.cpp LIBS LibXml2::LibXml2)
