target_sources(vtcore-ui PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/alert_presenter.cpp
  ${CMAKE_CURRENT_LIST_DIR}/border_view.cpp
  ${CMAKE_CURRENT_LIST_DIR}/images.cpp ${CMAKE_CURRENT_LIST_DIR}/image_resources.h
  ${CMAKE_CURRENT_LIST_DIR}/initialize.cpp
  ${CMAKE_CURRENT_LIST_DIR}/target_action.cpp
  ${CMAKE_CURRENT_LIST_DIR}/timer.cpp)
vtcore_install_headers(ui/common
  ${CMAKE_CURRENT_LIST_DIR}/alert_presenter.h
  ${CMAKE_CURRENT_LIST_DIR}/border_view.h
  ${CMAKE_CURRENT_LIST_DIR}/delegate.h
  ${CMAKE_CURRENT_LIST_DIR}/images.h
  ${CMAKE_CURRENT_LIST_DIR}/initialize.h
  ${CMAKE_CURRENT_LIST_DIR}/target_action.h
  ${CMAKE_CURRENT_LIST_DIR}/timer.h)

# The library's images: every PNG in vtcore/ui/images/ becomes the resource
# ":/vtcore/images/<file>", found by kw_loadQuillonBundleImage under its
# name without the extension. Later controls only drop their files there.
file(GLOB VTCORE_UI_IMAGES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/vtcore/ui/images/*.png)
qt_add_resources(vtcore-ui vtcore_ui_images
  PREFIX /vtcore/images
  BASE ${PROJECT_SOURCE_DIR}/vtcore/ui/images
  FILES ${VTCORE_UI_IMAGES})
