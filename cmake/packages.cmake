# What is handed over: a Debian package for each component, and one archive of everything.
#   cpack --config build/release/CPackConfig.cmake -G "DEB;TGZ" -B <where to>
#
# The Debian packages put all of it into one folder, because the host framework's stand-in has libraries of the names
# that a real workstation's have, and must not be found by anybody else.
set(CPACK_PACKAGE_NAME zrt-tool)
set(CPACK_PACKAGE_CONTACT "The ZRT tool plugin's developers <zrt-tool@${ZRT_MAKER_DOMAIN}.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Tool plugin for the ZRT screwdriver controller")
set(CPACK_PROJECT_CONFIG_FILE "${CMAKE_CURRENT_LIST_DIR}/package_prefix.cmake")
set(CPACK_PACKAGE_FILE_NAME "zrt-tool-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}")
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)

set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
# Without them the program starts and has no maintenance page; nothing links against them.
set(CPACK_DEBIAN_WORKPLACE_PACKAGE_DEPENDS
    "qml-module-qtquick2, qml-module-qtquick-controls2, qml-module-qtquick-layouts, qml-module-qtquick-window2")

include(CPack)
cpack_add_component(plugin DEPENDS sdk
    DESCRIPTION "The tool plugin: the library that a workstation application loads to drive ZRT controllers.")
cpack_add_component(sdk
    DESCRIPTION "The host framework that the plugin is built against, with a stand-in behind its declarations.")
cpack_add_component(controller
    DESCRIPTION "A simulated ZRT controller, to test a host without hardware.")
cpack_add_component(workplace DEPENDS plugin sdk controller
    DESCRIPTION "A small workstation with a simulated controller, to try the plugin without either.")
