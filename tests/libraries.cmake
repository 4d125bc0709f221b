# Tests of the host framework's stand-in.
add_zrt_test(fast_delegate LIBRARIES WorkstationSdk::plugin_management)
add_zrt_test(utilities LIBRARIES WorkstationSdk::utilities)
add_zrt_test(abstract_command LIBRARIES WorkstationSdk::plugin_management)
add_zrt_test(abstract_plugin LIBRARIES WorkstationSdk::plugin_management)
add_zrt_test(plugin_backend LIBRARIES WorkstationSdk::plugin_management)
add_zrt_test(class_layout LIBRARIES WorkstationSdk::plugin_management)
add_subdirectory(sdk_consumer)
