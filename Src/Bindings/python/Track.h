// qmx.Track, a keyframe track of the module, and what a project shares with
// the views of its track.
#pragma once

#include <pybind11/numpy.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "Bindings.h"
#include "Edits.h"
#include "Project.h"
#include "QMXComPtr.h"

namespace qmxpy {

// An open project file: the tool's project (its lock held while it is open
// for editing) and whether it has edits not yet saved.
struct ProjectState {
    std::unique_ptr<qmxkf::Project> project;  // null once closed
    std::mutex mutex;                         // one Python call at a time
    std::string path;
    bool readOnly = false;
    bool modified = false;  // an edit since the last save
    bool created = false;   // the file does not exist until the first save
};

// A key as given from Python: qmx.Params, a dict, or any object with the
// fields time, angle, x, y, opacity, scale_x, scale_y; each field optional.
struct GivenKey {
    std::optional<double> time;
    qmxkf::ValueOptions values;
};

class Track {
public:
    // A new track of the module's, on its own.
    Track();
    // The track of an open project: edits go through the tool's edits and
    // are kept only when the project still reads back whole.
    explicit Track(std::shared_ptr<ProjectState> project);

    int Count();
    py::object Get(int64_t index);
    py::object At(py::object time);
    double Value(py::object property, py::object time);
    py::object IndexAt(py::object time);
    bool InRange(py::object time);
    bool HasKeys(py::object property);
    int FrameOf(int64_t index, int64_t rate);
    py::object KeyAtFrame(int64_t frame, int64_t rate);
    double TimeOfFrame(int64_t frame, int64_t rate);
    py::tuple Kinds(int64_t index);
    py::array_t<double> Sample(const py::array_t<double, py::array::c_style | py::array::forcecast>& times);
    py::array_t<double> SampleFrames(int64_t first, int64_t count, int64_t rate);

    int Add(py::object key, py::object kinds);
    int Set(int64_t index, py::object key, py::object kinds, bool replace);
    int Move(int64_t index, py::object time, bool replace);
    void Delete(int64_t index);
    void Clear();
    void SetKind(int64_t index, py::object kind, py::object property);
    std::string Repr();

private:
    // The track under this object's lock (a project's: while it is open).
    struct Access {
        std::unique_lock<std::mutex> lock;
        IQMXKeyFrame& track;
        ProjectState* project;  // null for a track on its own
    };
    Access Lock();
    // Applies `edit` to the project's track: refused whole when the tool
    // refuses it or when the track would no longer read back whole.
    static void Apply(Access& access, const qmxkf::Edit& edit);
    // Samples the track at `times` into rows of six; the lock is held.
    static void SampleRows(IQMXKeyFrame& track, const double* times, py::ssize_t n, double* rows);

    QMXComPtr<IQMXKeyFrame> m_own;  // a track on its own: the one reference this object holds
    std::mutex m_mutex;
    std::shared_ptr<ProjectState> m_project;
};

GivenKey ReadKey(py::object key);

}  // namespace qmxpy
