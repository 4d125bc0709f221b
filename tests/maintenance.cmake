# Tests of the maintenance side of AppWorkplace: records, pages, and the verbs that deal with them.
set(area workplace)
add_zrt_workplace_test(maintenance_records)
add_zrt_workplace_test(interrupted_save SOURCES support/file_calls.cpp)
target_link_libraries(tst_interrupted_save PRIVATE ${CMAKE_DL_LIBS})
add_zrt_workplace_test(maintenance_state)
add_zrt_workplace_test(page_document
    DEFINITIONS ZRT_PLUGIN_FILE="$<TARGET_FILE:p_tool_vesk_zrt>"
    DEPENDS p_tool_vesk_zrt)
set_area("plugin;workplace" page_document)
find_package(Qt5 5.15 REQUIRED COMPONENTS Qml)
target_link_libraries(tst_page_document PRIVATE Qt5::Qml)
add_zrt_workplace_test(panel_application)
# Runs the program; links nothing of it. Pictures are looked at.
find_package(Qt5 5.15 REQUIRED COMPONENTS Gui)
add_zrt_test(panel_cli
    LIBRARIES Qt5::Gui
    DEFINITIONS
        WORKPLACE_PROGRAM="$<TARGET_FILE:workplace>"
        ODD_INTERFACE_FILE="$<TARGET_FILE:odd_interface>"
        ODD_INSTANCES_FILE="$<TARGET_FILE:odd_instances>")
add_dependencies(tst_panel_cli workplace p_tool_vesk_zrt odd_interface odd_instances)
set_area(program panel_cli)
