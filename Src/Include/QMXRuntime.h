/// @file
/// What this host runtime (libQMXHost.so) offers its host programs beyond what
/// modules rely on: loading a module by path, the totals of reference-count
/// steps and its version. Modules never call these; a host engine with its own
/// runtime need not provide them.
#pragma once

#include <cstdint>

#include "qmx_export.h"

extern "C" {
/// Loads the component module at `path` (local scope) and registers the
/// classes its g_Templates lists. Returns the module's handle, for dlsym, or
/// null; QMXLastModuleError then tells why. Modules stay loaded.
///
/// A null `path` loads the keyframe module (libQMXKeyFrame.so) from the first
/// place that has one: each folder of the QMX_MODULE_PATH environment variable
/// (colon-separated), then the plug-in folder of this runtime's installation
/// (qmx/ beside the runtime's own file, so a relocated installation finds its
/// module too), then the folder of the runtime itself (where a build tree
/// keeps both). When none has it, QMXLastModuleError lists every place looked.
QMX_EXPORT void* QMXLoadModule(const char* path);
/// The reason of this thread's last failed QMXLoadModule.
QMX_EXPORT const char* QMXLastModuleError();

/// The release of the module behind `handle` (from QMXLoadModule or dlopen),
/// "major.minor.patch", as its build recorded it in an ELF note (owner "QMX",
/// type 1, the text zero-terminated) rather than in an exported symbol; null
/// when the module carries no such note. The text lives in the module and is
/// valid while the module stays loaded.
QMX_EXPORT const char* QMXModuleVersion(void* handle);

/// Totals of the reference-count steps taken through InterlockedIncrement and
/// InterlockedDecrement since the process started: every step, and the steps
/// that brought a count from 0 to 1 (a first reference) and from 1 to 0 (the
/// last release, when an object destroys itself). Tests use them to show
/// that every object made was destroyed exactly once.
struct QMXReferenceCounts {
    int64_t increments, decrements, firstReferences, lastReleases;
};
QMX_EXPORT void QMXGetReferenceCounts(QMXReferenceCounts* counts);

/// This runtime's release, "major.minor.patch".
QMX_EXPORT const char* QMXRuntimeVersion();
}
