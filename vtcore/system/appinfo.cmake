# Application information: name, version and system version.
target_sources(vtcore PRIVATE ${CMAKE_CURRENT_LIST_DIR}/appinfo.cpp)
vtcore_install_headers(system ${CMAKE_CURRENT_LIST_DIR}/appinfo.h)
