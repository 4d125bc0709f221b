#pragma once

#include <QtGlobal>

#ifdef plugin_management_EXPORTS
#define PLUGIN_MANAGEMENT_EXPORT Q_DECL_EXPORT
#else
#define PLUGIN_MANAGEMENT_EXPORT Q_DECL_IMPORT
#endif
