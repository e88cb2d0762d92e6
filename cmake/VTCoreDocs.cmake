# The API reference: Doxygen HTML from the contract comments of the public
# headers (those vtcore_module installs, plus the umbrella headers), with the
# module overview of docs/ARCHITECTURE.md as its start page.
#   cmake --build <build> --target docs      -> <build>/docs/html/index.html
# An undocumented public declaration is an error: the target fails, and with
# it the package build (VTCORE_BUILD_DOCS, on in the deb preset).
option(VTCORE_BUILD_DOCS "Build the API reference with every build and install it" OFF)
find_package(Doxygen 1.9 QUIET)
if(NOT DOXYGEN_FOUND)
  if(VTCORE_BUILD_DOCS)
    message(FATAL_ERROR "VTCORE_BUILD_DOCS needs doxygen (run scripts/install-deps docs)")
  endif()
  return()
endif()

get_property(vtcore_public_headers GLOBAL PROPERTY VTCORE_PUBLIC_HEADERS)
# Public headers merged before their contract comments were complete: left out
# of the reference, and so out of the check, until they are documented. Take a
# line out as soon as its header passes; never add one to get past the check.
set(VTCORE_DOCS_PENDING
    vtcore/ui/controls/number_editor/action_cell.h
    vtcore/ui/controls/number_editor/cell_group_control.h
    vtcore/ui/controls/number_editor/number_editor_cell.h
    vtcore/ui/controls/number_editor/number_editor_control.h)
foreach(pending IN LISTS VTCORE_DOCS_PENDING)
  list(REMOVE_ITEM vtcore_public_headers ${PROJECT_SOURCE_DIR}/${pending})
endforeach()
list(APPEND vtcore_public_headers
     ${PROJECT_SOURCE_DIR}/vtcore/vtcore.h ${PROJECT_SOURCE_DIR}/vtcore/export.h
     ${PROJECT_BINARY_DIR}/include/vtcore/version.h)
if(TARGET vtcore-ui)
  list(APPEND vtcore_public_headers ${PROJECT_SOURCE_DIR}/vtcore/ui.h)
endif()

set(DOXYGEN_PROJECT_NAME VTCore)
set(DOXYGEN_PROJECT_NUMBER ${PROJECT_VERSION})
set(DOXYGEN_PROJECT_BRIEF "${PROJECT_DESCRIPTION}")
set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/docs)
set(DOXYGEN_USE_MDFILE_AS_MAINPAGE ${PROJECT_SOURCE_DIR}/docs/ARCHITECTURE.md)
set(DOXYGEN_STRIP_FROM_PATH ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/include)
set(DOXYGEN_STRIP_FROM_INC_PATH ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/include)
set(DOXYGEN_FULL_PATH_NAMES YES)
set(DOXYGEN_EXTRACT_ALL NO)
set(DOXYGEN_WARN_IF_UNDOCUMENTED YES)
set(DOXYGEN_WARN_NO_PARAMDOC NO)
set(DOXYGEN_WARN_AS_ERROR FAIL_ON_WARNINGS)
set(DOXYGEN_QUIET YES)
set(DOXYGEN_GENERATE_TREEVIEW YES)
set(DOXYGEN_SORT_MEMBER_DOCS NO)
# A contract comment before a group of members (///@{ ... ///@}) covers each of them.
set(DOXYGEN_DISTRIBUTE_GROUP_DOC YES)
# Export macros and Qt's keywords mean nothing to a reader of the reference.
set(DOXYGEN_MACRO_EXPANSION YES)
set(DOXYGEN_EXPAND_ONLY_PREDEF YES)
set(DOXYGEN_PREDEFINED "VTCORE_EXPORT=" "VTCORE_UI_EXPORT=" "Q_OBJECT=" "Q_SIGNALS=signals"
                       "Q_SLOTS=slots" "Q_INVOKABLE=" "__cplusplus=202002L")
set(DOXYGEN_EXCLUDE_SYMBOLS "vtcore::detail" "vtcore::detail::*")

if(VTCORE_BUILD_DOCS)
  set(vtcore_docs_all ALL)
endif()
doxygen_add_docs(docs ${vtcore_public_headers} ${PROJECT_SOURCE_DIR}/docs/ARCHITECTURE.md
  ${vtcore_docs_all}
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
  COMMENT "API reference: ${PROJECT_BINARY_DIR}/docs/html/index.html")

if(VTCORE_BUILD_DOCS)
  if(VTCORE_DEBIAN_FILES)
    set(vtcore_docs_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/libvtcore-dev)
  else()
    set(vtcore_docs_dir ${CMAKE_INSTALL_DOCDIR})
  endif()
  install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/html DESTINATION ${vtcore_docs_dir} COMPONENT dev)
endif()
