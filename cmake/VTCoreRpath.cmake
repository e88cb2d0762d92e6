# Where installed VTCore binaries find libvtcore and libvtcore-ui.
#
# An executable installed under PREFIX/bin looks for its libraries relative to
# itself ($ORIGIN), so `cmake --install build/release --prefix /opt/vtcore`
# gives tools that run without LD_LIBRARY_PATH or ldconfig, and the installed
# tree can be moved. libvtcore-ui looks beside itself for libvtcore. When the
# library directory is one the loader searches anyway (/usr/lib/<multiarch>,
# as in the Debian packages), no run path is written at all: Debian forbids
# needless ones, and the loader's cache is then the one authority.
#
# Call vtcore_use_installed_rpath(EXECUTABLE|LIBRARY) in a folder before it
# creates its targets.
file(RELATIVE_PATH VTCORE_BIN_TO_LIB "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
if("${CMAKE_INSTALL_FULL_LIBDIR}" IN_LIST CMAKE_PLATFORM_IMPLICIT_LINK_DIRECTORIES
   OR "${CMAKE_INSTALL_FULL_LIBDIR}" IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
  set(VTCORE_LIBDIR_IS_SYSTEM ON)
else()
  set(VTCORE_LIBDIR_IS_SYSTEM OFF)
endif()

macro(vtcore_use_installed_rpath kind)
  if(VTCORE_LIBDIR_IS_SYSTEM)
    set(CMAKE_INSTALL_RPATH "")
  elseif("${kind}" STREQUAL "EXECUTABLE")
    set(CMAKE_INSTALL_RPATH "$ORIGIN/${VTCORE_BIN_TO_LIB}")
  else()
    set(CMAKE_INSTALL_RPATH "$ORIGIN")
  endif()
endmacro()
