// The Python package qmx: what its parts share. The module is loaded through
// the host runtime and driven only through its interfaces (qmxkf::ModuleHost);
// every argument that would reach one of the module's fatal stops is refused
// here, before the call, with a Python exception.
#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <string>

#include "IKeyFrame.h"
#include "IQMXKeyFrame.h"
#include "ModuleHost.h"

namespace qmxpy {

namespace py = pybind11;

// ---- the module ----

// The keyframe module: the one loaded by Load, or the one the runtime finds
// (QMXLoadModule's search), loaded now. Throws qmxkf::ToolError when none loads.
const qmxkf::ModuleHost& Module();
// Loads the module at `path` (empty: the runtime's search); once one is
// loaded, asking for another is an error.
const qmxkf::ModuleHost& Load(const std::string& path);

// ---- failures, turned into Python exceptions by the translator of Module.cpp ----

// An edit refused before it touched anything: qmx.EditRefused (a ValueError).
struct EditRefused : std::runtime_error {
    explicit EditRefused(const std::string& message) : std::runtime_error(message) {}
};
// A project file that cannot be opened or saved: qmx.ProjectError (an OSError).
struct ProjectFailure : std::runtime_error {
    explicit ProjectFailure(const std::string& message) : std::runtime_error(message) {}
};

// ---- the records and enumerations of the Python part (qmx/__init__.py) ----

struct Records {
    py::object kind, paramType, key, params;
};
Records& PythonRecords();

// ---- arguments ----

// `value` as a double; TypeError when it is no number, ValueError when it is
// not finite and `finite` is asked for.
double Number(py::handle value, const char* what, bool finite = true);
// A Python index (negative counts from the end) into `count` keys; IndexError
// outside them.
int KeyIndex(int64_t index, int count);
// A frame number or rate within the int range the module takes; ValueError outside it.
int IntArgument(int64_t value, const char* what);
// A key kind given as qmx.Kind, an int or a name ("smooth-clamped" or
// "smooth_clamped"); ValueError for anything that is no kind.
core::KeyframeInterpolationType KindArgument(py::handle kind);
// A track property given as 0..5 or a name ("angle", "x", "y", "opacity",
// "scale_x", "scale_y"); ValueError otherwise.
int PropertyArgument(py::handle property);
// The Python name of track property `property` (0..5): the tool's option
// name as an identifier ("scale_x").
const char* FieldName(int property);
// A key value as the curves store it: bool, an integer or a finite float.
core::ValAny ValueArgument(py::handle value);

// ---- results ----

py::object KindObject(int kind);
py::object ValueObject(const core::ValAny& value);
// A curve's value as a number (a bool as 0 or 1), for sampling into arrays.
double NumberOf(const core::ValAny& value);
// The named record qmx.Params of a track key.
py::object ParamsObject(const KeyFrameParam& key);

// Kinds whose tangents the module never recomputes: it stops the process
// when an edit would make it recompute a key of such a kind.
inline bool FixedKind(int kind)
{
    return kind == core::eKeyframeTypeFree || kind == core::eKeyframeTypeNone;
}

// Takes `mutex`, which keeps one Python call at a time on an object of the
// module. A thread that has to wait lets go of the interpreter's lock
// meanwhile: the thread holding the mutex may need the interpreter (to make
// a record, or when Python switches threads inside it) before it lets go.
inline std::unique_lock<std::mutex> Acquire(std::mutex& mutex)
{
    std::unique_lock<std::mutex> lock(mutex, std::try_to_lock);
    if (lock.owns_lock())
        return lock;
    if (PyGILState_Check()) {
        py::gil_scoped_release released;
        lock.lock();
    } else {
        lock.lock();
    }
    return lock;
}

// "1.5 s", as messages name times.
std::string Seconds(double time);
// Refuses to move key `index` onto `time` where key `other` (-1: none) already
// is, unless `replace` allows losing that key.
void RequireReplaceable(int other, int index, double time, bool replace);

void BindCurve(py::module_& m);
void BindTrack(py::module_& m);
void BindProject(py::module_& m);

}  // namespace qmxpy
