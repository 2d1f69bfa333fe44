#ifndef USERLOG_GLOBAL_H
#define USERLOG_GLOBAL_H

#include <QtCore/qglobal.h>

// Defined only while the library itself is compiled; hosts see the import side.
#if defined(VARNOR_USERLOG_LIBRARY)
#define USERLOG_EXPORT Q_DECL_EXPORT
#else
#define USERLOG_EXPORT Q_DECL_IMPORT
#endif

#endif // USERLOG_GLOBAL_H
