# Byte-order swapping, sample converters, CRCs and zlib compression of blocks.
find_package(ZLIB REQUIRED) # the peer the CRC and compression tests compare with
vtcore_add_gtest(byte_swap_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/byte_swap_test.cpp)
vtcore_add_gtest(sample_convert_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/sample_convert_test.cpp)
vtcore_add_gtest(crc_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/crc_test.cpp LIBS ZLIB::ZLIB)
vtcore_add_gtest(data_compression_test
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/data_compression_test.cpp LIBS ZLIB::ZLIB)
