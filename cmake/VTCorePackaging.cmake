include(CMakePackageConfigHelpers)

set(VTCORE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VTCore)

install(EXPORT VTCoreTargets NAMESPACE VTCore:: DESTINATION ${VTCORE_CMAKE_DIR} COMPONENT dev)
if(TARGET vtcore-ui)
  install(EXPORT VTCoreUiTargets NAMESPACE VTCore:: DESTINATION ${VTCORE_CMAKE_DIR}
          COMPONENT ui-dev)
endif()
configure_package_config_file(cmake/VTCoreConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/VTCoreConfig.cmake
  INSTALL_DESTINATION ${VTCORE_CMAKE_DIR})
# Any later version with the same major version (the same soname) serves an
# application that asked for an earlier one (docs/ARCHITECTURE.md, "ABI and
# soname rules").
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/VTCoreConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VTCoreConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/VTCoreConfigVersion.cmake
        DESTINATION ${VTCORE_CMAKE_DIR} COMPONENT dev)

# pkg-config files locate the prefix from ${pcfiledir}, so that the installed
# tree can be moved anywhere.
set(VTCORE_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH VTCORE_PC_TO_PREFIX /root/${VTCORE_PC_DIR} /root)
string(REGEX REPLACE "/$" "" VTCORE_PC_TO_PREFIX "${VTCORE_PC_TO_PREFIX}")
configure_file(cmake/vtcore.pc.in ${CMAKE_CURRENT_BINARY_DIR}/vtcore.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vtcore.pc DESTINATION ${VTCORE_PC_DIR} COMPONENT dev)
if(TARGET vtcore-ui)
  configure_file(cmake/vtcore-ui.pc.in ${CMAKE_CURRENT_BINARY_DIR}/vtcore-ui.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vtcore-ui.pc DESTINATION ${VTCORE_PC_DIR}
          COMPONENT ui-dev)
endif()

# ---------------------------------------------------------------------------
# Debian packages (`cmake --workflow --preset deb`, or `cpack -G DEB` in a
# build configured with CMAKE_INSTALL_PREFIX=/usr). Every install() rule of
# the project names one of these components, directly or through its
# folder's CMAKE_INSTALL_DEFAULT_COMPONENT_NAME; each component is one
# package:
#   runtime     libvtcore0        libvtcore.so.0
#   ui-runtime  libvtcore-ui0     libvtcore-ui.so.0
#   dev         libvtcore-dev     core headers, libvtcore.so, CMake package,
#                                 vtcore.pc, the API reference
#   ui-dev      libvtcore-ui-dev  UI headers, libvtcore-ui.so, VTCoreUiTargets,
#                                 vtcore-ui.pc, the Qt Designer plugin
#   tools       vtcore-tools      vtcore, vtcore-gallery (and what else tools/
#                                 installs: completion, manual pages)
# The runtime and tools packages get -dbgsym companions (.ddeb) holding the
# debug information, which is stripped from the binaries themselves.
option(VTCORE_DEBIAN_FILES
  "Install the copyright and changelog files each Debian package carries" OFF)

set(VTCORE_PACKAGE_MAINTAINER "VTCore maintainers <maintainers@vtcore.example.org>"
    CACHE STRING "Maintainer field of the Debian packages")

set(vtcore_deb_names runtime libvtcore0 dev libvtcore-dev tools vtcore-tools)
if(TARGET vtcore-ui)
  list(APPEND vtcore_deb_names ui-runtime libvtcore-ui0 ui-dev libvtcore-ui-dev)
endif()

if(VTCORE_DEBIAN_FILES)
  # Native package: the changelog is changelog.gz, compressed as dpkg expects
  # (maximum compression, no name or time stamp inside).
  set(vtcore_changelog_gz ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.gz)
  file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/debian)
  execute_process(COMMAND gzip -9nc ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/changelog
                  OUTPUT_FILE ${vtcore_changelog_gz} COMMAND_ERROR_IS_FATAL ANY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
               ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/changelog)
  set(names ${vtcore_deb_names})
  while(names)
    list(POP_FRONT names component package)
    install(FILES cmake/debian/copyright ${vtcore_changelog_gz}
            DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component})
  endwhile()
endif()

# Every installed file must belong to a package: an install() rule without a
# component would land in "Unspecified", which no package picks up.
get_cmake_property(vtcore_components COMPONENTS)
if("Unspecified" IN_LIST vtcore_components)
  message(FATAL_ERROR "An install() rule names no COMPONENT and its folder sets no "
                      "CMAKE_INSTALL_DEFAULT_COMPONENT_NAME: its files would be in no "
                      "Debian package (see cmake/VTCorePackaging.cmake)")
endif()

set(CPACK_PACKAGE_NAME vtcore)
set(CPACK_PACKAGE_VENDOR "VTCore developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${VTCORE_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_STRIP_FILES OFF)  # the dbgsym packages need the debug information
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# Dependencies on system libraries come from the binaries (dpkg-shlibdeps);
# libvtcore.so.0 and libvtcore-ui.so.0 are found in the build tree, and the
# dependencies on their own packages come from the component dependencies.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/vtcore ${PROJECT_BINARY_DIR}/vtcore/ui)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(names ${vtcore_deb_names})
set(CPACK_COMPONENTS_ALL "")
while(names)
  list(POP_FRONT names component package)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  string(TOUPPER ${component} C)
  set(CPACK_DEBIAN_${C}_PACKAGE_NAME ${package})
endwhile()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "support library for music-production applications
VTCore is the support library of a family of music-production desktop
applications: levelled logging, assertions that ask the user, trace output,
guarded allocation, UTF-8 strings, byte-order swapping and sample conversion,
CRCs and zlib blocks, web and XML string conversions, a memory reserve and a
leak guard, low-memory notifications, singletons and flyweights, and music
helpers (transients, channel layouts, MIDI value formatting, key names).
.
This package contains the shared library libvtcore.so.0.")

set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
# What the CMake package and vtcore.pc ask for when an application builds.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "libicu-dev, nlohmann-json3-dev, libxml2-dev, zlib1g-dev, libsystemd-dev, libdw-dev, libxkbcommon-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION "support library for music-production applications (development files)
VTCore is the support library of a family of music-production desktop
applications.
.
This package contains the headers, the CMake package (find_package(VTCore)),
the pkg-config file vtcore.pc and the HTML API reference.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_TOOLS_DEBUGINFO_PACKAGE ON)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "support library for music-production applications (tools)
VTCore is the support library of a family of music-production desktop
applications.
.
This package contains the command-line tool vtcore, which runs every service
of the library from a shell and walks through them with `vtcore tour`, and
the widget gallery vtcore-gallery.")

if(TARGET vtcore-ui)
  list(APPEND CPACK_COMPONENT_TOOLS_DEPENDS ui-runtime)
  set(CPACK_DEBIAN_UI-RUNTIME_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_UI-RUNTIME_DEBUGINFO_PACKAGE ON)
  set(CPACK_COMPONENT_UI-RUNTIME_DEPENDS runtime)
  set(CPACK_DEBIAN_UI-RUNTIME_DESCRIPTION "Qt 6 Widgets controls and views of VTCore
VTCore is the support library of a family of music-production desktop
applications. Its user-interface library adds Qt 6 Widgets controls and
views: a restartable timer, target/action, delegates, a border view, an image
loader and a Qt alert dialog for the core's assertions.
.
This package contains the shared library libvtcore-ui.so.0.")

  set(CPACK_DEBIAN_UI-DEV_PACKAGE_SECTION libdevel)
  # It carries the Qt Designer plugin, a binary like any other.
  set(CPACK_DEBIAN_UI-DEV_DEBUGINFO_PACKAGE ON)
  set(CPACK_COMPONENT_UI-DEV_DEPENDS ui-runtime dev)
  set(CPACK_DEBIAN_UI-DEV_PACKAGE_DEPENDS "qt6-base-dev")
  set(CPACK_DEBIAN_UI-DEV_DESCRIPTION "Qt 6 Widgets controls and views of VTCore (development files)
VTCore is the support library of a family of music-production desktop
applications.
.
This package contains the headers of its Qt 6 Widgets library, the CMake
target VTCore::ui, the pkg-config file vtcore-ui.pc and the Qt Designer
plugin that places the library's widgets in forms.")
endif()

set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/finish-packages.cmake)

include(CPack)
