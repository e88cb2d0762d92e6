# Warning set for every VTCore target. Applied per target (vtcore_set_warnings)
# so that consumers building against the installed package are not affected.
function(vtcore_set_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    -Wcast-align -Wformat=2 -Wimplicit-fallthrough -Wmissing-declarations
    -Wundef -Wvla)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -Wduplicated-cond -Wlogical-op)
  endif()
  if(VTCORE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
