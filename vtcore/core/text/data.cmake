# Byte-order swapping, sample converters, CRCs and zlib compression of blocks.
target_sources(vtcore PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/byte_swap.cpp
  ${CMAKE_CURRENT_LIST_DIR}/crc.cpp
  ${CMAKE_CURRENT_LIST_DIR}/data_compression.cpp
  ${CMAKE_CURRENT_LIST_DIR}/data_dispatch.cpp
  ${CMAKE_CURRENT_LIST_DIR}/sample_convert.cpp
  ${CMAKE_CURRENT_LIST_DIR}/swap_kernels.cpp)
vtcore_install_headers(core/text
  ${CMAKE_CURRENT_LIST_DIR}/byte_swap.h
  ${CMAKE_CURRENT_LIST_DIR}/crc.h
  ${CMAKE_CURRENT_LIST_DIR}/data_compression.h
  ${CMAKE_CURRENT_LIST_DIR}/data_dispatch.h
  ${CMAKE_CURRENT_LIST_DIR}/sample_convert.h)
