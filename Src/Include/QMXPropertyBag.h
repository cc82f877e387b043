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

extern "C" {
// A bag kept in the file `path` (one JSON document per bag). A missing file
// opens as an empty bag when `createIfMissing` is non-zero; otherwise, and for
// an unreadable, damaged or foreign file, the result is null and `error`
// (when given, `errorLength` bytes, always zero-terminated) says which file
// and what is wrong. Opening never changes the file. The bag keeps every
// entry exactly, as the in-memory bag does, and is written only by
// QMXSaveFileProperties.
QMX_EXPORT IQMXProperties* QMXOpenFileProperties(const char* path, int createIfMissing, char* error,
                                                 int errorLength);
// Writes a bag from QMXOpenFileProperties to its file atomically: a temporary
// file beside it is written, flushed to disk and renamed over the file, so an
// interrupted save leaves the previous file whole. S_OK, or E_FAIL with the
// reason in `error`; E_POINTER for a bag of another kind.
QMX_EXPORT HRESULT QMXSaveFileProperties(IQMXProperties* bag, char* error, int errorLength);
}
