# The allocator zone, the memory reserve and the leak guard.
option(VTCORE_MEMORY_RESERVE_ON_64BIT
       "Hold the memory reserve in 64-bit builds too (it is off there by default)" OFF)
target_sources(vtcore PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/malloc_zone.cpp
  ${CMAKE_CURRENT_LIST_DIR}/memory_reserve.cpp
  ${CMAKE_CURRENT_LIST_DIR}/leak_guard.cpp
  ${CMAKE_CURRENT_LIST_DIR}/symbolicator.cpp)
if(VTCORE_MEMORY_RESERVE_ON_64BIT)
  target_compile_definitions(vtcore PRIVATE VTCORE_MEMORY_RESERVE_ON_64BIT=1)
endif()
vtcore_install_headers(core/memory
  ${CMAKE_CURRENT_LIST_DIR}/malloc_zone.h
  ${CMAKE_CURRENT_LIST_DIR}/memory_reserve.h
  ${CMAKE_CURRENT_LIST_DIR}/leak_guard.h)
# The hook-code section's bounds stay private to the library.
target_link_options(vtcore PRIVATE LINKER:-z,start-stop-visibility=hidden)
