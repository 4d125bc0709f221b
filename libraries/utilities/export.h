#pragma once

#include <QtGlobal>

#ifdef utilities_EXPORTS
#define UTILITIES_EXPORT Q_DECL_EXPORT
#else
#define UTILITIES_EXPORT Q_DECL_IMPORT
#endif
