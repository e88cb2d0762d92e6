# vtcore_module(<library> SOURCES <files...> [HEADERS <public headers...>])
# Adds one module folder to a library: its sources (private headers under
# detail/ among them) are compiled into <library>, and its public headers are
# installed under include/ at the folder's own path, so that an application's
# include lines are the same in the tree and against an installed package.
function(vtcore_module library)
  cmake_parse_arguments(ARG "" "" "SOURCES;HEADERS" ${ARGN})
  file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  target_sources(${library} PRIVATE ${ARG_SOURCES} ${ARG_HEADERS})
  if(ARG_HEADERS)
    install(FILES ${ARG_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder})
    # The API reference (VTCoreDocs.cmake) is made from exactly these headers.
    foreach(header IN LISTS ARG_HEADERS)
      get_filename_component(header ${header} ABSOLUTE)
      set_property(GLOBAL APPEND PROPERTY VTCORE_PUBLIC_HEADERS ${header})
    endforeach()
  endif()
endfunction()
