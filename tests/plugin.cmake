# Tests of the plugin load the library file as a host does; they link against the host framework alone.
function(add_zrt_plugin_test name)
    add_zrt_test(${name}
        LIBRARIES WorkstationSdk::plugin_management WorkstationSdk::utilities
        DEFINITIONS ZRT_PLUGIN_FILE="$<TARGET_FILE:p_tool_vesk_zrt>" ${ARGN})
    add_dependencies(tst_${name} p_tool_vesk_zrt)
endfunction()

add_zrt_plugin_test(tool_plugin)
add_zrt_plugin_test(cmd_init)
add_zrt_plugin_test(plugin_traces NM_PROGRAM="${CMAKE_NM}")
