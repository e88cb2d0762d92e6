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

# The interposed malloc family only takes effect when the core library is
# ahead of libc in the program's lookup order, i.e. a direct dependency. With
# --as-needed (Debian's default) a program that calls no core function itself
# (or links only vtcore-ui) would drop it silently. Consumers therefore link
# it a second time with --no-as-needed; the linker keeps it as needed.
target_link_libraries(vtcore INTERFACE
  "-Wl,--push-state,--no-as-needed"
  "$<BUILD_INTERFACE:$<TARGET_LINKER_FILE:vtcore>>"
  "$<INSTALL_INTERFACE:$<INSTALL_PREFIX>/${CMAKE_INSTALL_LIBDIR}/${CMAKE_SHARED_LIBRARY_PREFIX}vtcore${CMAKE_SHARED_LIBRARY_SUFFIX}>"
  "-Wl,--pop-state")

# The allocator's hot paths: without exceptions a call from the noexcept
# malloc family may end in a plain jump (no terminate landing pad), without
# the PLT the jump into glibc goes straight through the GOT, and calls
# between the library's own functions need not allow for interposition.
set_source_files_properties(
  ${CMAKE_CURRENT_LIST_DIR}/malloc_zone.cpp ${CMAKE_CURRENT_LIST_DIR}/memory_reserve.cpp
  TARGET_DIRECTORY vtcore PROPERTIES COMPILE_OPTIONS "-fno-exceptions;-fno-plt;-fno-semantic-interposition")
