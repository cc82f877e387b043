// qmx.Track: the module's keyframe track through IQMXKeyFrame, on its own or
// as the view of a project's track.
//
// A track on its own holds only linear keys (the track adds no other kind),
// so the module's fatal stops that remain are a curve slot outside 0..5 and a
// time that is not a number; both are refused here. A project's track may
// hold keys of any kind read from its file: its edits go through the tool's
// edits (qmxkf::ApplyEdit), which refuse whatever would reach a fatal stop.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "Properties.h"
#include "ToolError.h"
#include "Track.h"

namespace qmxpy {

namespace {

// Kinds given for add and set: None, one kind for all six properties, or a
// dict of property to kind. Only the kinds whose tangents the module
// computes may be given.
qmxkf::KindOptions ReadKinds(py::object kinds)
{
    qmxkf::KindOptions options;
    if (kinds.is_none())
        return options;
    const auto automatic = [](py::handle kind) {
        const int k = KindArgument(kind);
        if (k >= qmxkf::kAutomaticKindCount)
            throw py::value_error(std::string("kind ") + qmxkf::kKindNames[k] +
                                  " cannot be set: tangents are computed for the kinds constant to flat only");
        return k;
    };
    if (PyDict_Check(kinds.ptr())) {
        for (auto [property, kind] : py::reinterpret_borrow<py::dict>(kinds))
            options[static_cast<size_t>(PropertyArgument(property))] = automatic(kind);
        return options;
    }
    options.fill(automatic(kinds));
    return options;
}

bool AnyKind(const qmxkf::KindOptions& kinds)
{
    for (const auto& kind : kinds)
        if (kind && *kind != core::eKeyframeTypeLinear)
            return true;
    return false;
}

void RequireLinear(const qmxkf::KindOptions& kinds)
{
    if (AnyKind(kinds))
        throw py::value_error("a track made on its own keeps linear keys; the kinds of keys are set on a "
                              "project's track (qmx.Project(...).track)");
}

}  // namespace

GivenKey ReadKey(py::object key)
{
    GivenKey given;
    const auto read = [&](const std::string& name, py::handle value) {
        if (name == "time") {
            given.time = Number(value, "a key's time");
            return;
        }
        const int p = PropertyArgument(py::str(name));
        given.values.values[p] = Number(value, FieldName(p));
    };
    if (PyDict_Check(key.ptr())) {
        for (auto [name, value] : py::reinterpret_borrow<py::dict>(key)) {
            if (!PyUnicode_Check(name.ptr()))
                throw py::type_error("the fields of a key are named by text");
            read(name.cast<std::string>(), value);
        }
        return given;
    }
    bool any = false;
    const auto take = [&](const char* name) {
        if (py::hasattr(key, name)) {
            read(name, key.attr(name));
            any = true;
        }
    };
    take("time");
    for (int p = 0; p < qmx::kTrackPropertyCount; ++p)
        take(FieldName(p));
    if (!any)
        throw py::type_error(std::string("a key is a qmx.Params or a dict, not ") + Py_TYPE(key.ptr())->tp_name);
    return given;
}

Track::Track() : m_own(Module().CreateTrack())
{
}

Track::Track(std::shared_ptr<ProjectState> project) : m_project(std::move(project))
{
}

Track::Access Track::Lock()
{
    if (!m_project)
        return Access{Acquire(m_mutex), *m_own, nullptr};
    std::unique_lock<std::mutex> lock = Acquire(m_project->mutex);
    if (!m_project->project)
        throw qmxkf::ToolError(m_project->path + ": the project is closed");
    return Access{std::move(lock), m_project->project->Track(), m_project.get()};
}

void Track::Apply(Access& access, const qmxkf::Edit& edit)
{
    ProjectState& state = *access.project;
    if (state.readOnly)
        throw qmxkf::ToolError(state.path + " was opened read-only");
    qmxkf::Project& project = *state.project;
    const qmxkf::Project::Checkpoint before = project.Mark();
    try {
        qmxkf::ApplyEdit(project, edit);
    } catch (const qmxkf::ToolError& e) {
        throw EditRefused(e.what());
    }
    // What a save would store must read back whole, as a save checks (a
    // checkpoint of a track that does not is refused).
    try {
        project.Mark();
    } catch (const qmxkf::ToolError& e) {
        project.Restore(before);
        throw EditRefused(std::string(e.what()) + " (the edit was taken back)");
    }
    state.modified = true;
}

// ---- reading ----

int Track::Count()
{
    Access access = Lock();
    return access.track.GetKeyFrameCount();
}

py::object Track::Get(int64_t index)
{
    Access access = Lock();
    KeyFrameParam key{};
    access.track.GetKeyFrame(KeyIndex(index, access.track.GetKeyFrameCount()), key);
    return ParamsObject(key);
}

py::object Track::At(py::object time)
{
    const double t = Number(time, "the time", false);
    Access access = Lock();
    KeyFrameParam key{};
    if (!access.track.GetKeyFrame(t, key))
        throw py::value_error("the track has no keys");
    return ParamsObject(key);
}

double Track::Value(py::object property, py::object time)
{
    const int p = PropertyArgument(property);
    const double t = Number(time, "the time", false);
    Access access = Lock();
    return NumberOf(access.track.GetKeyFrameValue(p, t));
}

py::object Track::IndexAt(py::object time)
{
    const double t = Number(time, "the time", false);
    Access access = Lock();
    const int index = access.track.GetKeyFrameIndex(t);
    return index >= 0 ? py::object(py::int_(index)) : py::object(py::none());
}

bool Track::InRange(py::object time)
{
    const double t = Number(time, "the time", false);
    Access access = Lock();
    return access.track.InKeyFrameRange(t);
}

bool Track::HasKeys(py::object property)
{
    const int p = PropertyArgument(property);
    Access access = Lock();
    return access.track.HasKeyFrame(p);
}

int Track::FrameOf(int64_t index, int64_t rate)
{
    const int r = IntArgument(rate, "rate");
    Access access = Lock();
    int frame = 0;
    access.track.CaculateKeyFrameIndex(KeyIndex(index, access.track.GetKeyFrameCount()), r, frame);
    return frame;
}

py::object Track::KeyAtFrame(int64_t frame, int64_t rate)
{
    const int f = IntArgument(frame, "frame"), r = IntArgument(rate, "rate");
    Access access = Lock();
    int index = -1;
    if (!access.track.GetKeyFrameIndex(f, r, index))
        return py::none();
    return py::int_(index);
}

double Track::TimeOfFrame(int64_t frame, int64_t rate)
{
    const int f = IntArgument(frame, "frame"), r = IntArgument(rate, "rate");
    Access access = Lock();
    double time = 0.0;
    access.track.CaculateKeyFramePosition(f, r, time);
    return time;
}

py::tuple Track::Kinds(int64_t index)
{
    Access access = Lock();
    const int i = KeyIndex(index, access.track.GetKeyFrameCount());
    py::tuple kinds(qmx::kTrackPropertyCount);
    if (access.project == nullptr) {
        for (int p = 0; p < qmx::kTrackPropertyCount; ++p)
            kinds[static_cast<size_t>(p)] = KindObject(core::eKeyframeTypeLinear);
        return kinds;
    }
    const qmxkf::TrackKeys keys = access.project->project->Keys();
    for (int p = 0; p < qmx::kTrackPropertyCount; ++p)
        kinds[static_cast<size_t>(p)] = KindObject(keys[static_cast<size_t>(p)].at(static_cast<size_t>(i)).kind);
    return kinds;
}

void Track::SampleRows(IQMXKeyFrame& track, const double* times, py::ssize_t n, double* rows)
{
    if (n > 0 && track.GetKeyFrameCount() == 0)
        throw py::value_error("the track has no keys");
    for (py::ssize_t i = 0; i < n; ++i) {
        KeyFrameParam key{};
        track.GetKeyFrame(times[i], key);
        double* row = rows + i * qmx::kTrackPropertyCount;
        for (int p = 0; p < qmx::kTrackPropertyCount; ++p)
            row[p] = key.*qmx::kTrackProperties[p].field;
    }
}

py::array_t<double> Track::Sample(const py::array_t<double, py::array::c_style | py::array::forcecast>& times)
{
    if (times.ndim() != 1)
        throw py::value_error("times must be a one-dimensional sequence of numbers");
    const py::ssize_t n = times.shape(0);
    py::array_t<double> rows({n, static_cast<py::ssize_t>(qmx::kTrackPropertyCount)});
    const double* in = times.data();
    double* out = rows.mutable_data();
    {
        py::gil_scoped_release released;
        Access access = Lock();
        SampleRows(access.track, in, n, out);
    }
    return rows;
}

py::array_t<double> Track::SampleFrames(int64_t first, int64_t count, int64_t rate)
{
    const int r = IntArgument(rate, "rate");
    if (count < 0 || count > std::numeric_limits<int>::max())
        throw py::value_error("a count of frames is 0 to 2147483647, not " + std::to_string(count));
    IntArgument(first, "frame");
    if (count > 0)
        IntArgument(first + count - 1, "frame");
    py::array_t<double> rows({static_cast<py::ssize_t>(count), static_cast<py::ssize_t>(qmx::kTrackPropertyCount)});
    double* out = rows.mutable_data();
    {
        py::gil_scoped_release released;
        std::vector<double> times(static_cast<size_t>(count));
        Access access = Lock();
        for (int64_t k = 0; k < count; ++k)
            access.track.CaculateKeyFramePosition(static_cast<int>(first + k), r, times[static_cast<size_t>(k)]);
        SampleRows(access.track, times.data(), static_cast<py::ssize_t>(count), out);
    }
    return rows;
}

// ---- editing ----

int Track::Add(py::object key, py::object kinds)
{
    GivenKey given = ReadKey(key);
    if (!given.time)
        throw py::value_error("a key to add needs its time");
    const qmxkf::KindOptions options = ReadKinds(kinds);
    const double time = *given.time;
    Access access = Lock();
    if (access.project != nullptr) {
        qmxkf::Edit edit;
        edit.verb = qmxkf::Edit::Verb::Add;
        edit.at = time;
        edit.values = given.values;
        edit.kinds = options;
        Apply(access, edit);
        return access.track.GetKeyFrameIndex(time);
    }
    RequireLinear(options);
    // Properties not given take the track's value there (the neutral
    // transform on an empty track), as the tool's add does.
    KeyFrameParam param = qmxkf::kNeutral;
    access.track.GetKeyFrame(time, param);
    param.dPosition = time;
    for (int p = 0; p < qmx::kTrackPropertyCount; ++p) {
        const double sampled = param.*qmx::kTrackProperties[p].field;
        if (!given.values.Given(p) && !std::isfinite(sampled))
            throw EditRefused(std::string("the track's ") + FieldName(p) + " at " + Seconds(time) +
                              " is not finite: give " + FieldName(p));
    }
    given.values.ApplyTo(param);
    int index = -1;
    access.track.AddKeyFrame(param, index);
    return index;
}

int Track::Set(int64_t index, py::object key, py::object kinds, bool replace)
{
    const GivenKey given = ReadKey(key);
    const qmxkf::KindOptions options = ReadKinds(kinds);
    Access access = Lock();
    const int i = KeyIndex(index, access.track.GetKeyFrameCount());
    KeyFrameParam param{};
    access.track.GetKeyFrame(i, param);
    const double time = given.time.value_or(param.dPosition);
    if (access.project != nullptr) {
        qmxkf::Edit edit;
        edit.verb = qmxkf::Edit::Verb::Set;
        edit.index = i;
        edit.at = given.time;
        edit.values = given.values;
        edit.kinds = options;
        edit.replace = replace;
        Apply(access, edit);
        return access.track.GetKeyFrameIndex(time);
    }
    RequireLinear(options);
    RequireReplaceable(access.track.GetKeyFrameIndex(time), i, time, replace);
    given.values.ApplyTo(param);
    param.dPosition = time;
    access.track.SetKeyFrame(i, param);
    return access.track.GetKeyFrameIndex(time);
}

int Track::Move(int64_t index, py::object time, bool replace)
{
    const double t = Number(time, "a key's time");
    Access access = Lock();
    const int i = KeyIndex(index, access.track.GetKeyFrameCount());
    if (access.project != nullptr) {
        qmxkf::Edit edit;
        edit.verb = qmxkf::Edit::Verb::Move;
        edit.index = i;
        edit.at = t;
        edit.replace = replace;
        Apply(access, edit);
        return access.track.GetKeyFrameIndex(t);
    }
    RequireReplaceable(access.track.GetKeyFrameIndex(t), i, t, replace);
    access.track.ChangeKeyFramePosition(i, t);
    return access.track.GetKeyFrameIndex(t);
}

void Track::Delete(int64_t index)
{
    Access access = Lock();
    const int i = KeyIndex(index, access.track.GetKeyFrameCount());
    if (access.project != nullptr) {
        qmxkf::Edit edit;
        edit.verb = qmxkf::Edit::Verb::Delete;
        edit.index = i;
        Apply(access, edit);
        return;
    }
    access.track.DeleteKeyFrame(i);
}

void Track::Clear()
{
    Access access = Lock();
    if (access.project != nullptr) {
        qmxkf::Edit edit;
        edit.verb = qmxkf::Edit::Verb::Clear;
        Apply(access, edit);
        return;
    }
    access.track.CleanAllKeyFrame();
}

void Track::SetKind(int64_t index, py::object kind, py::object property)
{
    qmxkf::KindOptions options;
    if (property.is_none()) {
        options = ReadKinds(kind);
    } else {
        options = ReadKinds(py::none());
        options[static_cast<size_t>(PropertyArgument(property))] = ReadKinds(kind)[0];
    }
    Access access = Lock();
    const int i = KeyIndex(index, access.track.GetKeyFrameCount());
    if (access.project == nullptr) {
        RequireLinear(options);
        return;
    }
    qmxkf::Edit edit;
    edit.verb = qmxkf::Edit::Verb::Set;
    edit.index = i;
    edit.kinds = options;
    Apply(access, edit);
}

std::string Track::Repr()
{
    Access access = Lock();
    const int count = access.track.GetKeyFrameCount();
    const std::string keys = std::to_string(count) + (count == 1 ? " key" : " keys");
    if (access.project != nullptr)
        return "<qmx.Track of " + access.project->path + ", " + keys + ">";
    return "<qmx.Track, " + keys + ">";
}

void BindTrack(py::module_& m)
{
    py::class_<Track>(m, "Track", R"(A keyframe track of the module: a clip's transform, six curves in lockstep.

Each key has a time and six values: angle, x, y, opacity, scale_x, scale_y
(qmx.PROPERTIES, the column order of every sampled array). Keys are read as
qmx.Params records and given as qmx.Params or as a dict of some of its
fields (the others come from the track: the key's own values for set, the
track's value at that time for add). Indexes count from 0 in time order;
negative indexes count from the end.

qmx.Track() makes a track on its own, whose keys are linear. A project's
track (qmx.Project(...).track) may hold keys of every kind: its edits are
those of the command-line tool, with its checks, and each is kept only if
the project still reads back whole; they reach the file when the project
is saved.

IndexError for a key that does not exist, ValueError for a property outside
0..5, a time that is not finite or a kind that cannot be set, and
qmx.EditRefused for an edit that would lose a key without replace=True or
that the module would stop the process on.)")
        .def(py::init<>(), "A new, empty track on its own, made by the module's factory.")
        .def("__len__", &Track::Count, "The number of keys.")
        .def("__getitem__", &Track::Get, py::arg("index"), "The key at `index` as qmx.Params.")
        .def("__repr__", &Track::Repr)
        .def("get", &Track::Get, py::arg("index"), "The key at `index` as qmx.Params.")
        .def("at", &Track::At, py::arg("time"),
             "The track sampled at `time` as qmx.Params (ValueError on an empty track).")
        .def("value", &Track::Value, py::arg("property"), py::arg("time"),
             "One property's value at `time`; the property is a name of qmx.PROPERTIES or its number 0 to 5.")
        .def("index_at", &Track::IndexAt, py::arg("time"), "The index of the key at exactly `time`, or None.")
        .def("in_range", &Track::InRange, py::arg("time"),
             "Whether `time` lies between the first and the last key (never with fewer than two keys).")
        .def("has_keys", &Track::HasKeys, py::arg("property"),
             "Whether the property's curve has keys (a name of qmx.PROPERTIES or its number 0 to 5).")
        .def("frame_of", &Track::FrameOf, py::arg("index"), py::arg("rate"),
             "The frame of key `index` at `rate` frames per second (the nearest frame).")
        .def("key_at_frame", &Track::KeyAtFrame, py::arg("frame"), py::arg("rate"),
             "The lowest index of a key on `frame` at `rate` frames per second, or None.")
        .def("time_of_frame", &Track::TimeOfFrame, py::arg("frame"), py::arg("rate"),
             "The time of `frame` at `rate` frames per second (a rate of 0 or less counts as 1).")
        .def("kinds", &Track::Kinds, py::arg("index"),
             "The kinds (qmx.Kind) of key `index`, one per property in the order of qmx.PROPERTIES.")
        .def("sample", &Track::Sample, py::arg("times"),
             R"(The track at each of `times` (a one-dimensional sequence of numbers) as a
NumPy float64 array of shape (len(times), 6), columns in the order of
qmx.PROPERTIES. One call of the track per time, without the Python
interpreter's lock.)")
        .def("sample_frames", &Track::SampleFrames, py::arg("first"), py::arg("count"), py::arg("rate"),
             "The track at `count` frames from frame `first` at `rate` frames per second, as sample() gives it.")
        .def("add", &Track::Add, py::arg("key"), py::arg("kind") = py::none(),
             R"(Adds a key and returns its index; a key already at its time is replaced.

`key` is a qmx.Params or a dict with at least "time". `kind` is None
(linear), one kind for every property, or a dict of property to kind; only
a project's track takes kinds other than linear.)")
        .def("set", &Track::Set, py::arg("index"), py::arg("key"), py::arg("kind") = py::none(),
             py::arg("replace") = false,
             R"(Changes key `index` to the values (and time) given and returns its new index.
Moving it onto another key's time replaces that key only with replace=True.)")
        .def("move", &Track::Move, py::arg("index"), py::arg("time"), py::arg("replace") = false,
             "Moves key `index` to `time` and returns its new index; onto another key only with replace=True.")
        .def("delete", &Track::Delete, py::arg("index"), "Deletes key `index` on all six properties.")
        .def("clear", &Track::Clear, "Deletes every key.")
        .def("set_kind", &Track::SetKind, py::arg("index"), py::arg("kind"), py::arg("property") = py::none(),
             R"(Gives key `index` a kind, on every property or on `property` only; `kind` may
also be a dict of property to kind. A project's track only (a track on its
own accepts linear, which its keys are).)");
}

}  // namespace qmxpy
