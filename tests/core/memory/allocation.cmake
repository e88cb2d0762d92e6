# The allocator zone, the memory reserve and the leak guard.

vtcore_add_gtest(malloc_zone_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/malloc_zone_test.cpp)

# The reserve is off in 64-bit builds; its tests compile the reserve into the
# test program with it switched on. The program's definitions take precedence
# over the library's for every reserve function and global, while the zone
# and its interposers stay the library's.
vtcore_add_gtest(memory_reserve_test
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/memory_reserve_test.cpp
          ${PROJECT_SOURCE_DIR}/vtcore/core/memory/memory_reserve.cpp
  ENV VTCORE_DEFAULTS_FILE=${CMAKE_CURRENT_BINARY_DIR}/no-such-defaults.json)
target_compile_definitions(memory_reserve_test PRIVATE VTCORE_MEMORY_RESERVE_ON_64BIT=1)

# Hooks and frame walks need the library's own interposers: not under the
# sanitizers, which bring their allocator.
if(NOT VTCORE_SANITIZER AND NOT VTCORE_BUILD_FUZZ)
  vtcore_add_gtest(leak_guard_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/leak_guard_test.cpp)
endif()

# A program that links the core library and calls none of its functions,
# exactly as an application linking only vtcore-ui would: the interposed
# malloc family must still be in force (examples/direct_link checks the
# installed package the same way).
add_executable(direct_link_check ${PROJECT_SOURCE_DIR}/examples/direct_link/main.cpp)
target_link_libraries(direct_link_check PRIVATE VTCore::vtcore ${CMAKE_DL_LIBS})
if(NOT VTCORE_SANITIZER AND NOT VTCORE_BUILD_FUZZ)
  add_test(NAME DirectLink.MallocFamilyIsTheCoreLibrarys COMMAND direct_link_check)
endif()
