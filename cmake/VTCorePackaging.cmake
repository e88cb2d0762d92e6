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
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/VTCoreConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
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
