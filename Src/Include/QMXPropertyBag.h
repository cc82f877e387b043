/// @file
/// Property bags of the host runtime.
#pragma once

#include "IQMXProperties.h"
#include "qmx_export.h"

extern "C" {
/// A new, empty bag kept in memory, with one reference that the caller owns.
/// It keeps every stored name and value exactly, wide characters included;
/// GetProperty and GetInt answer E_FAIL for a missing name, and GetInt also
/// for a name that holds a string. Safe to share between threads.
QMX_EXPORT IQMXProperties* QMXCreateMemoryProperties();
}

extern "C" {
/// A bag kept in the file `path` (one JSON document per bag). A missing file
/// opens as an empty bag when `createIfMissing` is non-zero; otherwise, and for
/// an unreadable, damaged or foreign file, the result is null and `error`
/// (when given, `errorLength` bytes, always zero-terminated) says which file
/// and what is wrong. Opening never changes the file and takes no lock. The
/// bag keeps every entry exactly, as the in-memory bag does, and is written
/// only by QMXSaveFileProperties. A symbolic link is followed: saves write the
/// file it names and keep the link.
QMX_EXPORT IQMXProperties* QMXOpenFileProperties(const char* path, int createIfMissing, char* error,
                                                 int errorLength);
/// Opens `path` as QMXOpenFileProperties does, for editing: it first takes the
/// file's edit lock, waiting at most `waitMilliseconds` for another editor to
/// finish ("<path> is being edited by another process"), and refuses a file
/// the caller may not write ("<path> is read-only"). The bag holds the lock,
/// across any number of saves, until its last Release; no other editor and no
/// other save of the file runs meanwhile. A missing file (with
/// `createIfMissing`) has nothing to lock: its first save creates it, and
/// refuses when another process created it first.
QMX_EXPORT IQMXProperties* QMXEditFileProperties(const char* path, int createIfMissing, int waitMilliseconds,
                                                 char* error, int errorLength);
/// Writes a bag from QMXOpenFileProperties or QMXEditFileProperties to its
/// file: under the file's edit lock (held by an editing bag, else taken for the
/// save and given back), a temporary file beside it is written, flushed to
/// disk, read back and compared with the bag, and only then renamed over the
/// file, keeping its mode and (where allowed) its owner; so an interrupted or
/// refused save leaves the previous file byte for byte. A bag that does not
/// hold the lock refuses to overwrite a file that changed since it was opened
/// or last saved ("<path> was changed by another process since it was
/// opened"), and a bag opened on a missing file refuses to replace one that
/// appeared ("<path>: already exists"). S_OK, or E_FAIL with the reason in
/// `error`; E_POINTER for a bag of another kind.
QMX_EXPORT HRESULT QMXSaveFileProperties(IQMXProperties* bag, char* error, int errorLength);
/// Removes the entry `name` from a bag of this runtime (in memory or
/// file-backed): S_OK, E_FAIL when there is none, E_POINTER for a null
/// argument or a bag of another kind. A track's save leaves the segments of an
/// earlier, longer save in place; a host that rewrites a track removes them
/// first.
QMX_EXPORT HRESULT QMXRemoveProperty(IQMXProperties* bag, const wchar_t* name);
}
