// The extension qmx._qmx: loading the module, the runtime's counters, the
// exceptions and the argument and result conversions the classes share.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <algorithm>
#include <array>

#include <cctype>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>

#include "Bindings.h"
#include "Output.h"
#include "Properties.h"
#include "QMXRuntime.h"
#include "ToolError.h"

namespace qmxpy {

namespace {

// Left in place at exit, as the module itself stays loaded: objects that
// Python collects late still find it.
qmxkf::ModuleHost* g_module = nullptr;

// The package's own exception types, made once when the extension loads.
PyObject* g_error = nullptr;
PyObject* g_editRefused = nullptr;
PyObject* g_projectError = nullptr;

PyObject* NewException(const char* name, PyObject* bases, const char* doc)
{
    PyObject* type = PyErr_NewExceptionWithDoc(name, doc, bases, nullptr);
    if (type == nullptr)
        throw py::error_already_set();
    return type;
}

std::string TypeName(py::handle value)
{
    return Py_TYPE(value.ptr())->tp_name;
}

}  // namespace

const qmxkf::ModuleHost& Load(const std::string& path)
{
    if (g_module != nullptr) {
        if (path.empty() || path == g_module->Path())
            return *g_module;
        throw qmxkf::ToolError("the keyframe module is already loaded from " + g_module->Path() +
                               "; a process uses one module");
    }
    g_module = new qmxkf::ModuleHost(path);
    return *g_module;
}

const qmxkf::ModuleHost& Module()
{
    return g_module != nullptr ? *g_module : Load("");
}

Records& PythonRecords()
{
    // Kept for the life of the process: never released after the interpreter is gone.
    static Records* records = new Records();
    return *records;
}

std::string Seconds(double time)
{
    return qmxkf::Number(time) + " s";
}

void RequireReplaceable(int other, int index, double time, bool replace)
{
    if (other >= 0 && other != index && !replace)
        throw EditRefused("key " + std::to_string(other) + " is already at " + Seconds(time) +
                          ": pass replace=True to replace it");
}

double Number(py::handle value, const char* what, bool finite)
{
    if (value.is_none() || PyUnicode_Check(value.ptr()) || PyBytes_Check(value.ptr()))
        throw py::type_error(std::string(what) + " must be a number, not " + TypeName(value));
    const double number = PyFloat_AsDouble(value.ptr());
    if (number == -1.0 && PyErr_Occurred()) {
        PyErr_Clear();
        throw py::type_error(std::string(what) + " must be a number, not " + TypeName(value));
    }
    if (finite && !std::isfinite(number))
        throw py::value_error(std::string(what) + " must be finite, not " + qmxkf::Number(number));
    return number;
}

int KeyIndex(int64_t index, int count)
{
    const int64_t resolved = index < 0 ? index + count : index;
    if (resolved < 0 || resolved >= count) {
        throw py::index_error("key index " + std::to_string(index) + " is out of range: " +
                              (count == 0 ? std::string("there are no keys")
                                          : "there are " + std::to_string(count) + " keys"));
    }
    return static_cast<int>(resolved);
}

int IntArgument(int64_t value, const char* what)
{
    if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max())
        throw py::value_error(std::string(what) + " " + std::to_string(value) + " is outside the int range");
    return static_cast<int>(value);
}

core::KeyframeInterpolationType KindArgument(py::handle kind)
{
    if (PyUnicode_Check(kind.ptr())) {
        std::string name = kind.cast<std::string>();
        for (char& c : name)
            c = c == '_' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        for (int k = 0; k < int(std::size(qmxkf::kKindNames)); ++k)
            if (name == qmxkf::kKindNames[k])
                return static_cast<core::KeyframeInterpolationType>(k);
        throw py::value_error("no kind of key is called '" + kind.cast<std::string>() + "'");
    }
    if (PyBool_Check(kind.ptr()) || !PyIndex_Check(kind.ptr()))
        throw py::type_error("a kind is a qmx.Kind, an int or a name, not " + TypeName(kind));
    const long long number = PyLong_AsLongLong(py::reinterpret_steal<py::object>(PyNumber_Index(kind.ptr())).ptr());
    if (PyErr_Occurred())
        PyErr_Clear();
    if (number < 0 || number >= static_cast<long long>(std::size(qmxkf::kKindNames)))
        throw py::value_error(std::to_string(number) + " is no kind of key (kinds are 0 to 7)");
    return static_cast<core::KeyframeInterpolationType>(number);
}

const char* FieldName(int property)
{
    static const auto names = [] {
        std::array<std::string, qmx::kTrackPropertyCount> result;
        for (int p = 0; p < qmx::kTrackPropertyCount; ++p) {
            result[p] = qmx::kTrackProperties[p].option;
            std::replace(result[p].begin(), result[p].end(), '-', '_');
        }
        return result;
    }();
    return names[property].c_str();
}

int PropertyArgument(py::handle property)
{
    if (PyUnicode_Check(property.ptr())) {
        std::string name = property.cast<std::string>();
        for (char& c : name)
            c = c == '_' ? '-' : c;
        for (int p = 0; p < qmx::kTrackPropertyCount; ++p)
            if (name == qmx::kTrackProperties[p].option)
                return p;
        throw py::value_error("no property is called '" + property.cast<std::string>() +
                              "' (angle, x, y, opacity, scale_x, scale_y)");
    }
    if (PyBool_Check(property.ptr()) || !PyIndex_Check(property.ptr()))
        throw py::type_error("a property is a name or a number 0 to 5, not " + TypeName(property));
    const long long number =
        PyLong_AsLongLong(py::reinterpret_steal<py::object>(PyNumber_Index(property.ptr())).ptr());
    if (PyErr_Occurred())
        PyErr_Clear();
    if (number < 0 || number >= qmx::kTrackPropertyCount)
        throw py::value_error("property " + std::to_string(number) + " is outside 0 to 5");
    return static_cast<int>(number);
}

core::ValAny ValueArgument(py::handle value)
{
    if (PyBool_Check(value.ptr()))
        return core::ValAny(value.ptr() == Py_True);
    if (PyIndex_Check(value.ptr()) && !PyFloat_Check(value.ptr())) {
        const py::object integer = py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
        if (!integer)
            throw py::error_already_set();
        int overflow = 0;
        const long long number = PyLong_AsLongLongAndOverflow(integer.ptr(), &overflow);
        if (overflow != 0 || number < std::numeric_limits<int32_t>::min() ||
            number > std::numeric_limits<int32_t>::max()) {
            throw py::value_error("integer values are kept as 32-bit ints; " + py::str(integer).cast<std::string>() +
                                  " does not fit (give it as a float)");
        }
        return core::ValAny(static_cast<int32_t>(number));
    }
    if (PyUnicode_Check(value.ptr()))
        throw py::type_error("a key's value is a number or a bool; curves do not keep text");
    return core::ValAny(Number(value, "a key's value"));
}

py::object KindObject(int kind)
{
    if (kind >= 0 && kind < int(std::size(qmxkf::kKindNames)) && PythonRecords().kind)
        return PythonRecords().kind(kind);
    return py::int_(kind);
}

py::object ValueObject(const core::ValAny& value)
{
    switch (value.GetTypeTag()) {
    case core::ValAny::kEmpty:
        return py::none();
    case core::ValAny::kBool:
        return py::bool_(value.Get<bool>());
    case core::ValAny::kInt32:
        return py::int_(value.Get<int>());
    default:
        break;
    }
    if (value.IsInteger()) {
        try {
            return py::int_(value.Get<int>());
        } catch (const core::AnyBadAccess&) {
        }
    }
    if (value.IsNumber())
        return py::float_(value.Get<double>());
    if (value.GetTypeTag() == core::ValAny::kText) {
        const char* text = value.Get<const char*>();
        if (text == nullptr)
            return py::none();
        py::object decoded = py::reinterpret_steal<py::object>(
            PyUnicode_DecodeUTF8(text, static_cast<Py_ssize_t>(std::strlen(text)), "replace"));
        if (!decoded)
            throw py::error_already_set();
        return decoded;
    }
    throw py::type_error("the value holds an object, which Python cannot read");
}

double NumberOf(const core::ValAny& value)
{
    if (value.GetTypeTag() == core::ValAny::kBool)
        return value.Get<bool>() ? 1.0 : 0.0;
    return value.IsNumber() ? value.Get<double>() : std::nan("");
}

py::object ParamsObject(const KeyFrameParam& key)
{
    py::tuple fields(1 + qmx::kTrackPropertyCount);
    fields[0] = py::float_(key.dPosition);
    for (int p = 0; p < qmx::kTrackPropertyCount; ++p)
        fields[static_cast<size_t>(p + 1)] = py::float_(key.*qmx::kTrackProperties[p].field);
    return PythonRecords().params(*fields);
}

}  // namespace qmxpy

using namespace qmxpy;

PYBIND11_MODULE(_qmx, m)
{
    m.doc() = "The compiled part of the qmx package; use the package qmx itself.";

    g_error = NewException("qmx.Error", PyExc_RuntimeError,
                           "A failure of the keyframe module, its host runtime or a project file.");
    g_editRefused = NewException("qmx.EditRefused",
                                 py::make_tuple(py::handle(g_error), py::handle(PyExc_ValueError)).release().ptr(),
                                 "An edit refused before anything changed: it would lose a key without being asked "
                                 "to, reach one of the module's fatal stops, or leave a project that does not read "
                                 "back whole.");
    g_projectError = NewException("qmx.ProjectError",
                                  py::make_tuple(py::handle(g_error), py::handle(PyExc_OSError)).release().ptr(),
                                  "A project file that cannot be opened, locked or saved; the file is left as it was.");
    m.attr("Error") = py::handle(g_error);
    m.attr("EditRefused") = py::handle(g_editRefused);
    m.attr("ProjectError") = py::handle(g_projectError);

    // Registered last, tried first: the package's own failures, then the
    // tool's and the module's exceptions.
    py::register_exception_translator([](std::exception_ptr failure) {
        try {
            if (failure)
                std::rethrow_exception(failure);
        } catch (const EditRefused& e) {
            PyErr_SetString(g_editRefused, e.what());
        } catch (const ProjectFailure& e) {
            PyErr_SetString(g_projectError, e.what());
        } catch (const qmxkf::ToolError& e) {
            PyErr_SetString(g_error, e.what());
        } catch (const core::AnyBadAccess& e) {
            PyErr_SetString(PyExc_TypeError, "the value is not of a kind this curve reads (ValAny Bad Access)");
        }
    });

    m.def("_register",
          [](py::object kind, py::object paramType, py::object key, py::object params) {
              PythonRecords() = Records{kind, paramType, key, params};
          },
          "Hands the package's records and enumerations to the extension (called once by qmx/__init__.py).");

    m.def("load", [](py::object path) {
              std::string file;
              if (!path.is_none())
                  file = py::module_::import("os").attr("fsdecode")(path).cast<std::string>();
              return Load(file).Path();
          },
          py::arg("path") = py::none(),
          R"(Loads the keyframe module and returns the path of the file loaded.

With no path, the host runtime finds it: each folder of QMX_MODULE_PATH, the
plug-in folder of the runtime's installation, then the runtime's own folder
(a build tree). Every other part of the package calls this on first use, so
calling it is needed only to name a module. A process keeps one module:
naming another afterwards raises qmx.Error.)");

    m.def("module_version", [] { return Module().Version(); },
          "The loaded module's release (from its version note), loading it if needed; empty when it has none.");
    m.def("runtime_version", [] { return std::string(QMXRuntimeVersion()); }, "The host runtime's release.");
    m.def("reference_counts", [] {
              QMXReferenceCounts counts{};
              QMXGetReferenceCounts(&counts);
              return py::make_tuple(counts.increments, counts.decrements, counts.firstReferences,
                                    counts.lastReleases);
          },
          "The runtime's totals of reference-count steps: (increments, decrements, first references, last "
          "releases).");

    // pybind11 finds NumPy's interface once, in a static initialiser that
    // imports NumPy (which may switch threads): done here, while the import
    // of this package holds every other thread off, two threads sampling for
    // the first time cannot block each other. Without NumPy the package loads
    // and only sampling fails.
    try {
        py::array_t<double> warm(0);
    } catch (const py::error_already_set&) {
    }

    BindCurve(m);
    BindTrack(m);
    BindProject(m);
    // Shown as the package's own classes (help(qmx.Track) says "in module qmx").
    for (const char* name : {"Curve", "Track", "Project"})
        m.attr(name).attr("__module__") = "qmx";
}
