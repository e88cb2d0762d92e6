include(CMakePackageConfigHelpers)

set(VTCORE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VTCore)

install(EXPORT VTCoreTargets NAMESPACE VTCore:: DESTINATION ${VTCORE_CMAKE_DIR})
if(TARGET vtcore-ui)
  set(VTCORE_HAS_UI ON)
else()
  set(VTCORE_HAS_UI OFF)
endif()
configure_package_config_file(cmake/VTCoreConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/VTCoreConfig.cmake
  INSTALL_DESTINATION ${VTCORE_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/VTCoreConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VTCoreConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/VTCoreConfigVersion.cmake
        DESTINATION ${VTCORE_CMAKE_DIR})

# pkg-config files locate the prefix from ${pcfiledir}, so that the installed
# tree can be moved anywhere.
set(VTCORE_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH VTCORE_PC_TO_PREFIX /root/${VTCORE_PC_DIR} /root)
string(REGEX REPLACE "/$" "" VTCORE_PC_TO_PREFIX "${VTCORE_PC_TO_PREFIX}")
foreach(pc vtcore vtcore-ui)
  if(pc STREQUAL "vtcore" OR TARGET vtcore-ui)
    configure_file(cmake/${pc}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc DESTINATION ${VTCORE_PC_DIR})
  endif()
endforeach()
