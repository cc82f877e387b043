// Property bags of the host runtime.
#pragma once

#include "IQMXProperties.h"
#include "qmx_export.h"

extern "C" {
// A new, empty bag kept in memory, with one reference that the caller owns.
// It keeps every stored name and value exactly, wide characters included;
// GetProperty and GetInt answer E_FAIL for a missing name, and GetInt also
// for a name that holds a string. Safe to share between threads.
QMX_EXPORT IQMXProperties* QMXCreateMemoryProperties();
}
