/// @file
/// The host's logger interface and the runtime's default logger.
#pragma once

#include "qmx_export.h"

/// The host's logger. Hosts may add operations after the two listed here.
class IQMXLogger {
public:
    virtual bool IsLevelEnabled(int level) = 0;                  ///< slot 0
    virtual void WriteLog(int level, const wchar_t* format, ...) = 0;  ///< slot 1
};

extern "C" {
/// The logger modules report through; may be null.
QMX_EXPORT IQMXLogger* QMXGetDefaultLogger();
/// Installs `logger` (null removes it) and returns the previous one. The
/// runtime does not take ownership.
QMX_EXPORT IQMXLogger* QMXSetDefaultLogger(IQMXLogger* logger);
}
