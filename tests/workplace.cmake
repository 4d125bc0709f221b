# Tests of AppWorkplace: its rooms one by one, and the program as a user runs it.
set(area workplace)

# Libraries to open that are not the plugin. Each lies in a folder of its own, where no other test searches.
function(add_odd_library name)
    add_library(${name} MODULE support/${name}.cpp)
    target_link_libraries(${name} PRIVATE Qt5::Core zrt_build_options ${ARGN})
    set_target_properties(${name} PROPERTIES
        LIBRARY_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/odd/${name}")
endfunction()
add_odd_library(odd_interface)
add_odd_library(odd_root)
add_odd_library(odd_instances WorkstationSdk::plugin_management)
# Its dependency is there when it is linked and nowhere to be found when it is loaded.
add_library(odd_absent SHARED support/odd_absent.cpp)
target_link_libraries(odd_absent PRIVATE zrt_build_options)
set_target_properties(odd_absent PROPERTIES LIBRARY_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/odd/odd_absent")
add_odd_library(odd_dependency odd_absent)
set_target_properties(odd_dependency PROPERTIES SKIP_BUILD_RPATH ON)

function(add_zrt_workplace_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "DEFINITIONS;DEPENDS;SOURCES")
    add_zrt_test(${name} LIBRARIES workplace_core DEFINITIONS ${arg_DEFINITIONS} SOURCES ${arg_SOURCES})
    if(arg_DEPENDS)
        add_dependencies(tst_${name} ${arg_DEPENDS})
    endif()
endfunction()

add_zrt_test(log_lines LIBRARIES workplace_log_lines DEFINITIONS SOURCE_FOLDER="${PROJECT_SOURCE_DIR}")
add_zrt_workplace_test(sequence)
add_zrt_workplace_test(host)
add_zrt_workplace_test(plugin_library
    DEFINITIONS
        ZRT_PLUGIN_FILE="$<TARGET_FILE:p_tool_vesk_zrt>"
        SDK_LIBRARY_FILE="$<TARGET_FILE:plugin_management>"
        ODD_INTERFACE_FILE="$<TARGET_FILE:odd_interface>"
        ODD_ROOT_FILE="$<TARGET_FILE:odd_root>"
        ODD_DEPENDENCY_FILE="$<TARGET_FILE:odd_dependency>"
        ZRT_MAKER_DOMAIN="${ZRT_MAKER_DOMAIN}"
    DEPENDS p_tool_vesk_zrt odd_interface odd_root odd_dependency)
add_zrt_workplace_test(event_json)
add_zrt_workplace_test(trace_reader)
add_zrt_workplace_test(replay)
add_zrt_test(explain
    DEFINITIONS
        WORKPLACE_PROGRAM="$<TARGET_FILE:workplace>"
        WORKPLACE_EXAMPLES="${PROJECT_SOURCE_DIR}/applications/AppWorkplace/examples")
add_dependencies(tst_explain workplace p_tool_vesk_zrt)
add_zrt_workplace_test(workplace_cli
    DEFINITIONS
        WORKPLACE_PROGRAM="$<TARGET_FILE:workplace>"
        TEST_DATA="${CMAKE_CURRENT_SOURCE_DIR}/data"
        SOURCE_FOLDER="${PROJECT_SOURCE_DIR}"
        WORKPLACE_EXAMPLES="${PROJECT_SOURCE_DIR}/applications/AppWorkplace/examples"
        ZRT_PLUGIN_FILE="$<TARGET_FILE:p_tool_vesk_zrt>"
        ODD_INTERFACE_FILE="$<TARGET_FILE:odd_interface>"
        ODD_ROOT_FILE="$<TARGET_FILE:odd_root>"
        ODD_INSTANCES_FILE="$<TARGET_FILE:odd_instances>"
        ODD_DEPENDENCY_FILE="$<TARGET_FILE:odd_dependency>"
        ZRT_MAKER_DOMAIN="${ZRT_MAKER_DOMAIN}"
        PROGRAM_VERSION="${PROJECT_VERSION}"
    DEPENDS workplace p_tool_vesk_zrt odd_interface odd_root odd_instances odd_dependency)
# Runs the program; links nothing of it. Sanitizers take more memory for themselves than the program may have.
set(memory_is_limited 1)
if(ZRT_SANITIZERS)
    set(memory_is_limited 0)
endif()
add_zrt_test(hostile_files
    DEFINITIONS
        WORKPLACE_PROGRAM="$<TARGET_FILE:workplace>"
        WORKPLACE_EXAMPLES="${PROJECT_SOURCE_DIR}/applications/AppWorkplace/examples"
        MEMORY_IS_LIMITED=${memory_is_limited})
add_dependencies(tst_hostile_files workplace p_tool_vesk_zrt)
set_area(program log_lines explain workplace_cli hostile_files)
add_subdirectory(packages)
