# vtcore_add_gtest(<name> SOURCES <files...> [LIBS <libs...>] [ENV <VAR=value...>]
#                  [LABELS <labels...>])
# One GoogleTest executable, linked with the core library, its tests
# registered one by one with CTest.
function(vtcore_add_gtest name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;ENV;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE VTCore::vtcore GTest::gtest GTest::gtest_main
                                        Threads::Threads ${ARG_LIBS})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  vtcore_set_warnings(${name})
  set(props "")
  # gtest_discover_tests flattens list-valued PROPERTIES, so the environment
  # is given to the test command itself (discovery and every test run go
  # through the target's emulator).
  if(ARG_ENV)
    set_property(TARGET ${name} PROPERTY CROSSCOMPILING_EMULATOR env ${ARG_ENV})
  endif()
  if(ARG_LABELS)
    list(APPEND props LABELS "${ARG_LABELS}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES ${props})
endfunction()
