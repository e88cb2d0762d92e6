vtcore_add_gtest(music_transients_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/transients_test.cpp)
vtcore_add_gtest(music_channel_layouts_test
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/channel_layouts_test.cpp)
vtcore_add_gtest(music_midi_context_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/midi_context_test.cpp)
