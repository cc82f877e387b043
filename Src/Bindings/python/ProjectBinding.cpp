// qmx.Project: a project file, opened, edited and saved exactly as the
// command-line tool does it (qmxkf::Project): loaded only when its track reads
// back whole, edited under the file's edit lock, saved atomically and only
// after what is about to be stored has read back the same.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <sys/stat.h>

#include <cerrno>

#include <memory>

#include "Project.h"
#include "Properties.h"
#include "ToolError.h"
#include "Track.h"

namespace qmxpy {

namespace {

std::string PathArgument(py::object path)
{
    return py::module_::import("os").attr("fsdecode")(path).cast<std::string>();
}

class Project {
public:
    Project(py::object path, bool create, bool readOnly, double waitSeconds)
        : m_state(std::make_shared<ProjectState>())
    {
        m_state->path = PathArgument(path);
        if (create && readOnly)
            throw py::value_error("a project is created for editing, not read-only");
        if (!(waitSeconds >= 0.0 && waitSeconds <= 86400.0))
            throw py::value_error("wait is 0 to 86400 seconds");
        struct stat info {};
        const bool exists = lstat(m_state->path.c_str(), &info) == 0;
        // Python's own errors for a file that is there or not, where the tool
        // would say the same in words.
        if (create == exists) {
            errno = exists ? EEXIST : ENOENT;
            PyErr_SetFromErrnoWithFilename(exists ? PyExc_FileExistsError : PyExc_FileNotFoundError,
                                           m_state->path.c_str());
            throw py::error_already_set();
        }
        const auto mode = create ? qmxkf::Project::Open::New
                                 : readOnly ? qmxkf::Project::Open::Read : qmxkf::Project::Open::Edit;
        try {
            m_state->project = std::make_unique<qmxkf::Project>(Module(), m_state->path, mode,
                                                                static_cast<int>(waitSeconds * 1000.0));
        } catch (const qmxkf::ToolError& e) {
            throw ProjectFailure(e.what());
        }
        m_state->readOnly = readOnly;
        m_state->created = create;
    }

    std::unique_ptr<Track> TrackView() { return std::make_unique<Track>(m_state); }

    const std::string& Path() const { return m_state->path; }
    bool Closed()
    {
        const auto lock = Acquire(m_state->mutex);
        return !m_state->project;
    }
    bool Modified()
    {
        const auto lock = Acquire(m_state->mutex);
        return m_state->modified;
    }

    py::dict Keys()
    {
        const auto lock = Acquire(m_state->mutex);
        const qmxkf::TrackKeys keys = Open().Keys();
        py::dict result;
        for (int p = 0; p < qmx::kTrackPropertyCount; ++p) {
            py::list list;
            for (const qmxkf::KeyRecord& key : keys[static_cast<size_t>(p)])
                list.append(PythonRecords().key(key.time, key.value, KindObject(key.kind), key.left, key.right));
            result[FieldName(p)] = list;
        }
        return result;
    }

    void Save()
    {
        const auto lock = Acquire(m_state->mutex);
        qmxkf::Project& project = Open();
        if (m_state->readOnly)
            throw ProjectFailure(m_state->path + " was opened read-only");
        try {
            project.Save();
        } catch (const qmxkf::ToolError& e) {
            throw ProjectFailure(e.what());
        }
        m_state->modified = false;
        m_state->created = false;
    }

    void Close()
    {
        std::unique_ptr<qmxkf::Project> closing;
        {
            const auto lock = Acquire(m_state->mutex);
            closing = std::move(m_state->project);
        }
    }

    bool Exit(py::handle type)
    {
        bool save = false;
        {
            const auto lock = Acquire(m_state->mutex);
            save = type.is_none() && m_state->project && !m_state->readOnly &&
                   (m_state->modified || m_state->created);
        }
        try {
            if (save)
                Save();
        } catch (...) {
            Close();
            throw;
        }
        Close();
        return false;
    }

    std::string Repr()
    {
        const auto lock = Acquire(m_state->mutex);
        if (!m_state->project)
            return "<qmx.Project " + m_state->path + ", closed>";
        const int count = m_state->project->KeyCount();
        return "<qmx.Project " + m_state->path + (m_state->readOnly ? ", read-only, " : ", ") +
               std::to_string(count) + (count == 1 ? " key" : " keys") + (m_state->modified ? ", modified>" : ">");
    }

private:
    // The open project; the state's lock is held.
    qmxkf::Project& Open()
    {
        if (!m_state->project)
            throw qmxkf::ToolError(m_state->path + ": the project is closed");
        return *m_state->project;
    }

    std::shared_ptr<ProjectState> m_state;
};

}  // namespace

void BindProject(py::module_& m)
{
    py::class_<Project>(m, "Project", R"(A project file holding one keyframe track, handled as the command-line tool
handles it.

Project(path) opens an existing file for editing and holds its edit lock
(an exclusive flock on the file) until the project is closed, waiting at
most `wait` seconds for another editor; create=True makes a new file (which
must not exist yet) on the first save; read_only=True opens it without a
lock, for reading. A file that does not read back whole is refused with
qmx.ProjectError naming its first fault.

Edits go through the project's track (project.track) and stay in memory
until save(), which checks that what is about to be stored reads back the
same and then replaces the file atomically; a refused save leaves the file
byte for byte. As a context manager the project is saved on a normal exit
(when it was edited or is new) and closed; on an exception it is closed
unsaved, leaving the file as it was:

    with qmx.Project("title.qmxbag", create=True) as project:
        project.track.add(qmx.Params(time=0, x=-400, opacity=0))
        project.track.add({"time": 1, "x": 0, "opacity": 1}, kind=qmx.Kind.SMOOTH))")
        .def(py::init<py::object, bool, bool, double>(), py::arg("path"), py::kw_only(), py::arg("create") = false,
             py::arg("read_only") = false, py::arg("wait") = 10.0,
             "Opens (or, with create=True, starts) the project file at `path`.")
        .def_property_readonly("track", &Project::TrackView, "The project's track (a qmx.Track view of it).")
        .def_property_readonly("path", &Project::Path, "The project file's path, as given.")
        .def_property_readonly("closed", &Project::Closed, "Whether the project was closed.")
        .def_property_readonly("modified", &Project::Modified, "Whether the track was edited since the last save.")
        .def("keys", &Project::Keys,
             R"(Every key of every property as the curves store them: a dict of property
name to a list of qmx.Key(time, value, kind, left, right).)")
        .def("save", &Project::Save,
             "Saves the track: verified, then atomically replacing the file (qmx.ProjectError if refused).")
        .def("close", &Project::Close,
             "Closes the project without saving, releasing its edit lock; unsaved edits are dropped.")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](Project& project, py::object type, py::object, py::object) { return project.Exit(type); },
             "Saves the project when the block ended normally (and it was edited or is new), then closes it.")
        .def("__repr__", &Project::Repr)
        .def_static("check", [](py::object path) { return qmxkf::Project::Check(Module(), PathArgument(path)); },
                    py::arg("path"),
                    "Every fault that keeps the file at `path` from loading, one line each; empty when it loads.");
}

}  // namespace qmxpy
