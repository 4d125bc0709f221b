# The maintenance page and the components it is made of, in a real QML engine with real key and mouse events.
set(area "plugin;workplace")
find_package(Qt5 5.15 REQUIRED COMPONENTS QuickTest)
add_zrt_test(maintenance_page
    LIBRARIES workplace_gui p_tool_vesk_zrt Qt5::QuickTest
    DEFINITIONS
        ZRT_PLUGIN_FILE="$<TARGET_FILE:p_tool_vesk_zrt>"
        PAGE_FILE="${PROJECT_SOURCE_DIR}/plugins/p_tool_vesk_zrt/resource/maintenance_panel.qml"
        QUICK_TEST_SOURCE_DIR="${CMAKE_CURRENT_SOURCE_DIR}/qml")
# A day stays the day it is west of Greenwich, and where summer time begins at midnight.
add_test(NAME maintenance_page_west COMMAND tst_maintenance_page)
set_tests_properties(maintenance_page_west PROPERTIES
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen;TZ=America/Santiago;LC_ALL=C.UTF-8" LABELS "${area}" TIMEOUT 120)

# It comes and goes again and again.
add_zrt_test(page_lives
    LIBRARIES workplace_gui p_tool_vesk_zrt
    DEFINITIONS ZRT_PLUGIN_FILE="$<TARGET_FILE:p_tool_vesk_zrt>")
set_tests_properties(page_lives PROPERTIES TIMEOUT 300)

# Links nothing of the plugin: it has to go.
add_zrt_test(unloading
    LIBRARIES workplace_gui
    DEFINITIONS ZRT_PLUGIN_FILE="$<TARGET_FILE:p_tool_vesk_zrt>")
add_dependencies(tst_unloading p_tool_vesk_zrt)

# The window, as an operator uses it: on a real screen, with the mouse and the keys of that screen.
find_program(XVFB_RUN xvfb-run REQUIRED)
find_program(XDOTOOL xdotool REQUIRED)
add_executable(tst_panel_window tst_panel_window.cpp)
target_include_directories(tst_panel_window PRIVATE support)
target_link_libraries(tst_panel_window PRIVATE workplace_gui Qt5::Test zrt_build_options)
target_compile_definitions(tst_panel_window PRIVATE
    ZRT_PLUGIN_FILE="$<TARGET_FILE:p_tool_vesk_zrt>"
    WORKPLACE_PROGRAM="$<TARGET_FILE:workplace>"
    XDOTOOL_PROGRAM="${XDOTOOL}"
    PICTURES_DIR="${CMAKE_CURRENT_BINARY_DIR}/pictures")
target_compile_options(tst_panel_window PRIVATE ${test_options})
zrt_use_precompiled(precompiled_tests tst_panel_window)
add_dependencies(tst_panel_window p_tool_vesk_zrt workplace)
add_test(NAME panel_window COMMAND "${XVFB_RUN}" -a -s "-screen 0 1280x800x24" $<TARGET_FILE:tst_panel_window>)
set_tests_properties(panel_window PROPERTIES
    ENVIRONMENT "QT_QPA_PLATFORM=xcb;TZ=UTC;LC_ALL=C.UTF-8;QT_LOGGING_RULES=default.debug=false" LABELS program TIMEOUT 120)
