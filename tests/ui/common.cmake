find_package(Qt6 6.4 REQUIRED COMPONENTS Widgets Test)

vtcore_add_gtest(vtcore_ui_common_test
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/qt_environment.cpp
          ${CMAKE_CURRENT_LIST_DIR}/timer_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/target_action_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/alert_presenter_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/border_view_test.cpp
  LIBS VTCore::ui Qt6::Widgets Qt6::Test
  ENV QT_QPA_PLATFORM=offscreen
  LABELS ui)
set_target_properties(vtcore_ui_common_test PROPERTIES AUTOMOC ON)

# The tests that need a window system (modal dialogs, nested loops, reading
# the screen back) in a real X server.
find_program(VTCORE_XVFB_RUN xvfb-run)
if(VTCORE_XVFB_RUN)
  add_test(NAME ui_real_window
           COMMAND ${VTCORE_XVFB_RUN} -a -s "-screen 0 1024x768x24"
                   $<TARGET_FILE:vtcore_ui_common_test> --gtest_filter=*RealWindow*)
  set_tests_properties(ui_real_window PROPERTIES
    ENVIRONMENT QT_QPA_PLATFORM=xcb LABELS "ui;xvfb" TIMEOUT 120)
else()
  message(STATUS "xvfb-run not found: the real-window UI test is not registered")
endif()

# --as-needed drops a library whose symbols a program never uses: the image
# loader must still find the resources from a program that calls only it.
add_executable(vtcore_ui_image_loader_test ${CMAKE_CURRENT_LIST_DIR}/image_loader_main.cpp)
target_link_libraries(vtcore_ui_image_loader_test PRIVATE VTCore::ui)
target_link_options(vtcore_ui_image_loader_test PRIVATE -Wl,--as-needed)
vtcore_set_warnings(vtcore_ui_image_loader_test)
add_test(NAME ui_image_loader_alone COMMAND vtcore_ui_image_loader_test)
set_tests_properties(ui_image_loader_alone PROPERTIES LABELS ui)
