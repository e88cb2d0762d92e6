# Processor code-path settings (CDotAPI).
target_sources(vtcore PRIVATE ${CMAKE_CURRENT_LIST_DIR}/dot_api.cpp)
vtcore_install_headers(system ${CMAKE_CURRENT_LIST_DIR}/dot_api.h)
