# Tests of the host framework's stand-in.
set(area libraries)
add_zrt_test(fast_delegate LIBRARIES WorkstationSdk::plugin_management)
add_zrt_test(utilities LIBRARIES WorkstationSdk::utilities)
add_zrt_test(abstract_command LIBRARIES WorkstationSdk::plugin_management)
add_zrt_test(abstract_plugin LIBRARIES WorkstationSdk::plugin_management)
add_zrt_test(plugin_backend LIBRARIES WorkstationSdk::plugin_management)
add_zrt_test(class_layout LIBRARIES WorkstationSdk::plugin_management)

# What a test needs that builds the plugin alone, with support/plugin_alone.h.
add_library(plugin_alone INTERFACE)
target_compile_definitions(plugin_alone INTERFACE
    CMAKE_PROGRAM="${CMAKE_COMMAND}"
    GENERATOR="${CMAKE_GENERATOR}"
    CXX_COMPILER="${CMAKE_CXX_COMPILER}"
    QT_PACKAGE_DIR="${Qt5_DIR}"
    SOURCE_DIR="${PROJECT_SOURCE_DIR}"
    LIB_DIR="${CMAKE_INSTALL_LIBDIR}")
add_subdirectory(sdk_consumer)
add_subdirectory(other_host)
