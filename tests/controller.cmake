# Tests of the simulated controller, with what it reads files with, and of the examples as a user runs them.
set(area libraries)
add_zrt_test(json_input LIBRARIES zrt_files)
add_zrt_test(zrt_simulated_controller LIBRARIES ZrtSimulatedController::zrt_controller)
# What is behind the front door too.
foreach(name IN ITEMS clock tightening zrt_controller zrt_endpoint zrt_faults zrt_formats)
    add_zrt_test(${name} LIBRARIES zrt_controller_parts)
endforeach()

set(area workplace)
add_zrt_workplace_test(interrupted_restore
    DEFINITIONS
        WORKPLACE_PROGRAM="$<TARGET_FILE:workplace>"
        ZRT_PLUGIN_FILE="$<TARGET_FILE:p_tool_vesk_zrt>"
    DEPENDS workplace p_tool_vesk_zrt)
add_zrt_test(examples
    LIBRARIES zrt_controller_parts workplace_log_lines
    DEFINITIONS
        WORKPLACE_PROGRAM="$<TARGET_FILE:workplace>"
        WORKPLACE_EXAMPLES="${PROJECT_SOURCE_DIR}/applications/AppWorkplace/examples")
add_dependencies(tst_examples workplace p_tool_vesk_zrt)
set_area("plugin;program" examples)
# What the examples print is compared; the plugin's traces in a debug build are not part of it.
set_property(TEST examples APPEND PROPERTY ENVIRONMENT "QT_LOGGING_RULES=default.debug=false")

# Records the traces and transcripts of the examples again, after a deliberate change.
add_custom_target(update_traces
    COMMAND bash "${CMAKE_CURRENT_SOURCE_DIR}/update_traces.sh" $<TARGET_FILE:workplace>
        "${PROJECT_SOURCE_DIR}/applications/AppWorkplace/examples" "${CMAKE_CURRENT_SOURCE_DIR}/data/workplace"
    DEPENDS workplace p_tool_vesk_zrt VERBATIM)
