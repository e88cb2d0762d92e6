# Transients, deviation record, channel layouts, MIDI formatting, time
# marker and musical context.
set(_music_dir ${CMAKE_CURRENT_LIST_DIR})
target_sources(vtcore PRIVATE
  ${_music_dir}/channel_layouts.cpp
  ${_music_dir}/deviation.cpp
  ${_music_dir}/midi_formatter.cpp
  ${_music_dir}/musical_context.cpp
  ${_music_dir}/time_marker.cpp
  ${_music_dir}/transients.cpp
  ${_music_dir}/trace_text.h)
vtcore_install_headers(music
  ${_music_dir}/channel_layouts.h
  ${_music_dir}/deviation.h
  ${_music_dir}/midi_formatter.h
  ${_music_dir}/musical_context.h
  ${_music_dir}/time_marker.h
  ${_music_dir}/transients.h)
