# The exception report.
target_sources(vtcore PRIVATE ${CMAKE_CURRENT_LIST_DIR}/exception_report.cpp)
vtcore_install_headers(core/diagnostics ${CMAKE_CURRENT_LIST_DIR}/exception_report.h)
