# UTF-8 strings and the web/XML conversions of host strings.
target_sources(vtcore PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/utf8.cpp
  ${CMAKE_CURRENT_LIST_DIR}/utf8.h
  ${CMAKE_CURRENT_LIST_DIR}/string_extension.cpp
  ${CMAKE_CURRENT_LIST_DIR}/string_extension.h)
vtcore_install_headers(core/text
  ${CMAKE_CURRENT_LIST_DIR}/utf8.h
  ${CMAKE_CURRENT_LIST_DIR}/string_extension.h)
