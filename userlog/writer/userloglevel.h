#ifndef USERLOGLEVEL_H
#define USERLOGLEVEL_H

#include <QtCore/QtGlobal>

// Level of an entry as the writer sees it. The fixed underlying type lets every
// signed 32-bit value through unchanged; values without a name are plain log
// entries, tagged "log".
enum UserLogLevel : qint32
{
    UserLogInfo = 2,      // "info"
    UserLogWarn = 3,      // "warn"
    UserLogError = 4,     // "erro"
    UserLogPrintInfo = 5, // batch entries: tagged "printinfo" and copied to the print file
    UserLogPrint = 6,     // single entries: copied to the print file
};

#endif // USERLOGLEVEL_H
