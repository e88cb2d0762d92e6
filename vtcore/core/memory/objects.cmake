# Object layer, singletons, flyweights, the callback list and notifications.
target_sources(vtcore PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/add_remove_iterate_list.cpp
  ${CMAKE_CURRENT_LIST_DIR}/flyweight.cpp
  ${CMAKE_CURRENT_LIST_DIR}/low_memory_notification_center.cpp
  ${CMAKE_CURRENT_LIST_DIR}/notification_center.cpp
  ${CMAKE_CURRENT_LIST_DIR}/object.cpp
  ${CMAKE_CURRENT_LIST_DIR}/singleton.cpp)
vtcore_install_headers(core/memory
  ${CMAKE_CURRENT_LIST_DIR}/add_remove_iterate_list.h
  ${CMAKE_CURRENT_LIST_DIR}/flyweight.h
  ${CMAKE_CURRENT_LIST_DIR}/low_memory_notification_center.h
  ${CMAKE_CURRENT_LIST_DIR}/notification_center.h
  ${CMAKE_CURRENT_LIST_DIR}/object.h
  ${CMAKE_CURRENT_LIST_DIR}/singleton.h)
