vtcore_add_gtest(music_transients_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/transients_test.cpp)
vtcore_add_gtest(music_channel_layouts_test
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/channel_layouts_test.cpp)
vtcore_add_gtest(music_midi_context_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/midi_context_test.cpp)

# Drives the vtcore tool the way a user would.
if(TARGET vtcore-cli)
  vtcore_add_gtest(music_tool_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/transients_tool_test.cpp)
  target_compile_definitions(music_tool_test PRIVATE
    VTCORE_CLI_PATH="$<TARGET_FILE:vtcore-cli>")
  add_dependencies(music_tool_test vtcore-cli)
endif()
