#include <plugin_management/i_plugin.h>

// Defined here, so that the class's type information stands in this library alone.
IPlugin::~IPlugin() = default;
