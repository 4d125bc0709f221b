set(area plugin)
find_package(Qt5 5.15 REQUIRED COMPONENTS Qml)

# Tests of the plugin load the library file as a host does; they link against the host framework alone.
function(add_zrt_plugin_test name)
    add_zrt_test(${name}
        LIBRARIES WorkstationSdk::plugin_management WorkstationSdk::utilities
        DEFINITIONS ZRT_PLUGIN_FILE="$<TARGET_FILE:p_tool_vesk_zrt>" ${ARGN})
    add_dependencies(tst_${name} p_tool_vesk_zrt)
endfunction()

# Where branches are counted, the way into what clears up after an exception would be one for each call. The plugin
# throws nothing and catches nothing.
function(leave_out_exceptions target)
    if(ZRT_COVERAGE)
        target_compile_options(${target} PRIVATE -fno-exceptions)
    endif()
endfunction()
leave_out_exceptions(p_tool_vesk_zrt)

# Tests of the exported classes link against the library and use them as a host's own code would.
function(add_zrt_class_test name)
    add_zrt_test(${name} LIBRARIES p_tool_vesk_zrt Qt5::Qml ${ARGN})
    leave_out_exceptions(tst_${name})
endfunction()

# A translation as a host installs one.
find_package(Qt5 5.15 REQUIRED COMPONENTS LinguistTools)
qt5_add_translation(preset_info_translation data/preset_info_de.ts OPTIONS -idbased)
add_custom_target(preset_info_translation DEPENDS ${preset_info_translation})

add_zrt_plugin_test(catalogue)
add_zrt_plugin_test(cmd_event_listen)
add_zrt_plugin_test(cmd_get_direction)
add_zrt_plugin_test(cmd_get_preset_info PRESET_INFO_TRANSLATION="${preset_info_translation}")
add_dependencies(tst_cmd_get_preset_info preset_info_translation)
add_zrt_plugin_test(cmd_init)
add_zrt_plugin_test(cmd_restore)
add_zrt_plugin_test(cmd_start_tightening)
add_zrt_plugin_test(cmd_stop_tightening)
add_zrt_plugin_test(cmd_trigger_listen)
add_zrt_plugin_test(conversations)
target_link_libraries(tst_conversations PRIVATE command_courses command_model)
find_program(ZRT_QTPLUGININFO qtplugininfo HINTS /usr/lib/qt5/bin REQUIRED
    DOC "Reads the metadata of a plugin, for the test of the library's front door")
mark_as_advanced(ZRT_QTPLUGININFO)
set(pads_objects 0)
if(ZRT_SANITIZERS AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    set(pads_objects 1)
endif()
add_zrt_plugin_test(front_door
    ZRT_MAKER_DOMAIN="${ZRT_MAKER_DOMAIN}"
    MAINTENANCE_PAGE_FILE="${PROJECT_SOURCE_DIR}/plugins/p_tool_vesk_zrt/resource/maintenance_panel.qml"
    READELF_PROGRAM="${CMAKE_READELF}"
    PADS_OBJECTS=${pads_objects}
    QTPLUGININFO_PROGRAM="${ZRT_QTPLUGININFO}")
target_link_libraries(tst_front_door PRIVATE Qt5::Qml ${CMAKE_DL_LIBS})
add_zrt_plugin_test(lives)
add_zrt_plugin_test(reentrant_host)
add_zrt_plugin_test(plugin_traces NM_PROGRAM="${CMAKE_NM}")
add_zrt_plugin_test(tool_plugin)
target_link_libraries(tst_tool_plugin PRIVATE p_tool_vesk_zrt)

add_zrt_class_test(channel_list_model)
add_zrt_class_test(maintenance_backend)
add_zrt_class_test(tool_channel)

# All command classes, as the plugin's headers have them: a header that includes them and lists their names.
set(plugin_source "${PROJECT_SOURCE_DIR}/plugins/p_tool_vesk_zrt/source")
set(command_classes_folder "${CMAKE_CURRENT_BINARY_DIR}/command_classes")
function(make_command_classes)
    file(GLOB headers CONFIGURE_DEPENDS "${plugin_source}/d_cmd_*.h")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${headers})
    foreach(header IN LISTS headers)
        file(STRINGS "${header}" class REGEX "^class .* : public DAbstractCommand")
        if(NOT class MATCHES "^class (DCmd[A-Za-z]+) [^;]*$")
            message(FATAL_ERROR "${header} must have one command class, DCmd…; found: '${class}'")
        endif()
        list(APPEND classes ${CMAKE_MATCH_1})
        cmake_path(GET header FILENAME name)
        string(APPEND includes "#include \"${name}\"\n")
    endforeach()
    if(NOT classes)
        message(FATAL_ERROR "no d_cmd_*.h in ${plugin_source}")
    endif()
    list(JOIN classes ", " classes)
    file(CONFIGURE OUTPUT "${command_classes_folder}/command_classes.h" @ONLY CONTENT
"#pragma once

@includes@
template <class... Commands> struct Classes
{};
using CommandClasses = Classes<@classes@>;
")
endfunction()
make_command_classes()

# The library hides its command classes. What of them no host reaches is tested on what the library is linked from.
add_zrt_test(command_classes
    LIBRARIES WorkstationSdk::plugin_management WorkstationSdk::utilities Qt5::Qml
    SOURCES $<TARGET_OBJECTS:p_tool_vesk_zrt>)
target_include_directories(tst_command_classes PRIVATE "${plugin_source}" "${command_classes_folder}")
