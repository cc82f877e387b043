// qmx.Curve: one parameter curve of the module, through core::IKeyFrame.
//
// The curve stops the process when an edit would make it recompute the
// tangents of a key of kind free or none (kinds that come only from a text),
// so every edit first finds the keys it would recompute and refuses when one
// of them has such a kind: the edited key itself, and its neighbours, of
// which the curve passes over those of kind none (but not those of kind free)
// — except a removal, which recomputes both neighbours whatever they are.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <mutex>
#include <string>

#include "Bindings.h"
#include "CurveText.h"
#include "Properties.h"
#include "QMXComPtr.h"

namespace qmxpy {

namespace {

const char* KindName(int kind)
{
    return kind >= 0 && kind < int(std::size(qmxkf::kKindNames)) ? qmxkf::kKindNames[kind] : "unknown";
}

class Curve {
public:
    Curve() : m_curve(Module().CreateCurve()) {}

    // ---- reading ----

    int Count()
    {
        const auto lock = Acquire(m_mutex);
        return m_curve->GetKeyFramesCount();
    }

    py::object Key(int64_t index)
    {
        const auto lock = Acquire(m_mutex);
        const int i = KeyIndex(index, m_curve->GetKeyFramesCount());
        double left = 0.0, right = 0.0;
        m_curve->GetPointControlParam(i, left, right);
        return PythonRecords().key(m_curve->GetPointTime(i), ValueObject(m_curve->GetPointValue(i)),
                                   KindObject(m_curve->GetInterpolationType(i)), left, right);
    }

    py::object Kind(int64_t index)
    {
        const auto lock = Acquire(m_mutex);
        return KindObject(m_curve->GetInterpolationType(KeyIndex(index, m_curve->GetKeyFramesCount())));
    }

    py::object Value(py::object time, bool clamp)
    {
        const double t = Number(time, "the time", false);
        const auto lock = Acquire(m_mutex);
        return ValueObject(m_curve->GetValue(t, clamp));
    }

    py::object IndexAt(py::object time)
    {
        const double t = Number(time, "the time", false);
        const auto lock = Acquire(m_mutex);
        const int index = m_curve->getTimeValuePairIndex(t);
        return index >= 0 ? py::object(py::int_(index)) : py::object(py::none());
    }

    py::array_t<double> Sample(const py::array_t<double, py::array::c_style | py::array::forcecast>& times,
                               bool clamp)
    {
        if (times.ndim() != 1)
            throw py::value_error("times must be a one-dimensional sequence of numbers");
        const py::ssize_t n = times.shape(0);
        py::array_t<double> values(n);
        const double* in = times.data();
        double* out = values.mutable_data();
        {
            py::gil_scoped_release released;
            const auto lock = Acquire(m_mutex);
            for (py::ssize_t i = 0; i < n; ++i)
                out[i] = NumberOf(m_curve->GetValue(in[i], clamp));
        }
        return values;
    }

    py::tuple Range()
    {
        const auto lock = Acquire(m_mutex);
        core::ValAny low, high;
        m_curve->GetValueRange(low, high);
        return py::make_tuple(ValueObject(low), ValueObject(high));
    }

    void SetRange(const py::tuple& range)
    {
        if (range.size() != 2)
            throw py::value_error("a range is a pair (low, high)");
        const core::ValAny low = ValueArgument(range[0]), high = ValueArgument(range[1]);
        const auto lock = Acquire(m_mutex);
        m_curve->SetValueRange(low, high);
    }

    py::object Type()
    {
        const auto lock = Acquire(m_mutex);
        return PythonRecords().paramType(static_cast<int>(m_curve->GetParameterType()));
    }

    void SetType(int64_t type)
    {
        if (type < core::eParameterTypeDouble || type > core::eParameterTypeString)
            throw py::value_error("a curve's type is 0 to 3 (qmx.ParamType), not " + std::to_string(type));
        const auto lock = Acquire(m_mutex);
        m_curve->SetParameterType(static_cast<core::ParameterTypeEnum>(type));
    }

    std::string ToJson()
    {
        const auto lock = Acquire(m_mutex);
        return m_curve->Serialize();
    }

    // ---- editing ----

    int Add(py::object time, py::object value, py::object kind)
    {
        const double t = Number(time, "a key's time");
        const core::ValAny v = ValueArgument(value);
        core::KeyframeInterpolationType k = KindArgument(kind);
        const auto lock = Acquire(m_mutex);
        const core::ParameterTypeEnum type = m_curve->GetParameterType();
        if (type == core::eParameterTypeBool || type == core::eParameterTypeString)
            k = core::eKeyframeTypeConstant;  // what the curve makes of any kind there
        if (FixedKind(k))
            throw py::value_error(std::string("keys of kind ") + KindName(k) +
                                  " are only read from a text: the curve computes the tangents of every key it adds");
        const int existing = m_curve->getTimeValuePairIndex(t);
        const int before = existing >= 0 ? existing : KeysBefore(t);
        RequireRecomputable(before - 1, true);
        RequireRecomputable(existing >= 0 ? existing + 1 : before, true);
        return m_curve->AddPoint(t, v, k);
    }

    void Remove(int64_t index)
    {
        const auto lock = Acquire(m_mutex);
        const int count = m_curve->GetKeyFramesCount();
        const int i = KeyIndex(index, count);
        // Both neighbours are recomputed whatever their kind; the one before
        // the first key is the last key when there are more than two.
        RequireRecomputable(i > 0 ? i - 1 : count > 2 ? count - 1 : -1, false);
        RequireRecomputable(i + 1, false);
        m_curve->RemovePoint(i);
    }

    void SetValue(int64_t index, py::object value)
    {
        const core::ValAny v = ValueArgument(value);
        const auto lock = Acquire(m_mutex);
        const int i = KeyIndex(index, m_curve->GetKeyFramesCount());
        RequireRecomputable(i, false);
        RequireRecomputable(i - 1, true);
        RequireRecomputable(i + 1, true);
        m_curve->SetPointValue(i, v);
    }

    void SetTime(int64_t index, py::object time, bool replace)
    {
        const double t = Number(time, "a key's time");
        const auto lock = Acquire(m_mutex);
        const int i = KeyIndex(index, m_curve->GetKeyFramesCount());
        if (m_curve->GetPointTime(i) == t)
            return;
        RequireRecomputable(i, false);
        const int other = m_curve->getTimeValuePairIndex(t);
        RequireReplaceable(other, i, t, replace);
        // The moved key's new neighbours among the keys that stay.
        const int before = KeysBefore(t);
        const int below = before - 1 == i ? before - 2 : before - 1;
        const int first = other >= 0 ? other + 1 : before;
        RequireRecomputable(below, true);
        RequireRecomputable(first == i ? first + 1 : first, true);
        m_curve->SetPointTime(i, t);
    }

    void SetKind(int64_t index, py::object kind)
    {
        const core::KeyframeInterpolationType k = KindArgument(kind);
        const auto lock = Acquire(m_mutex);
        const int i = KeyIndex(index, m_curve->GetKeyFramesCount());
        if (m_curve->GetInterpolationType(i) == k)
            return;
        if (FixedKind(k))
            throw py::value_error(std::string("a key cannot be given kind ") + KindName(k) +
                                  ": the curve computes the tangents of a key whose kind changes");
        RequireRecomputable(i - 1, true);
        RequireRecomputable(i + 1, true);
        m_curve->SetPointInterpolationType(i, k);
    }

    void SetTangents(int64_t index, py::object left, py::object right)
    {
        const double l = Number(left, "the left tangent"), r = Number(right, "the right tangent");
        const auto lock = Acquire(m_mutex);
        const int i = KeyIndex(index, m_curve->GetKeyFramesCount());
        double oldLeft = 0.0, oldRight = 0.0;
        m_curve->GetPointControlParam(i, oldLeft, oldRight);
        if (oldLeft == l && oldRight == r)
            return;
        // The key keeps the tangents given; its neighbours are recomputed.
        RequireRecomputable(i - 1, true);
        RequireRecomputable(i + 1, true);
        m_curve->SetPointControlParam(i, l, r);
    }

    void Clear()
    {
        const auto lock = Acquire(m_mutex);
        m_curve->Clear();
    }

    // Replaces the curve by the one `text` describes, read by the module into
    // a new curve first: a text the module does not read back as written
    // (beyond spacing) is refused and the curve stays as it was.
    void FromJson(const std::string& text)
    {
        QMXComPtr<core::IKeyFrame> read = Module().CreateCurve();
        std::string rewritten;
        try {
            read->Desialize(text.c_str());
            rewritten = read->Serialize();
        } catch (const std::exception& e) {
            throw py::value_error(std::string("the text does not read as a curve (") + e.what() + ")");
        }
        if (rewritten != text) {
            const py::module_ json = py::module_::import("json");
            bool same = false;
            try {
                same = json.attr("loads")(text).equal(json.attr("loads")(rewritten));
            } catch (const py::error_already_set&) {
                throw py::value_error("the text is not JSON");
            }
            if (!same)
                throw py::value_error("the text does not read back as written: " +
                                      qmxkf::DescribeUnreadable(text, rewritten));
        }
        for (int key = 0, count = read->GetKeyFramesCount(); key < count; ++key) {
            const int kind = read->GetInterpolationType(key);
            if (kind < 0 || kind >= int(std::size(qmxkf::kKindNames)))
                throw py::value_error("key " + std::to_string(key) + " has kind " + std::to_string(kind) +
                                      ", which is no kind of key");
        }
        const auto lock = Acquire(m_mutex);
        m_curve->CopyFrom(read.Get());
    }

    std::unique_ptr<Curve> Copy()
    {
        auto copy = std::make_unique<Curve>();
        const auto lock = Acquire(m_mutex);
        copy->m_curve->CopyFrom(m_curve.Get());
        return copy;
    }

    std::string Repr()
    {
        const auto lock = Acquire(m_mutex);
        const int count = m_curve->GetKeyFramesCount();
        static const char* const kTypes[] = {"double", "int", "bool", "string"};
        const int type = m_curve->GetParameterType();
        return "<qmx.Curve of " + std::string(type >= 0 && type < 4 ? kTypes[type] : "?") + ", " +
               std::to_string(count) + (count == 1 ? " key>" : " keys>");
    }

private:
    // The number of keys earlier than `time`; the lock is held.
    int KeysBefore(double time)
    {
        int low = 0, high = m_curve->GetKeyFramesCount();
        while (low < high) {
            const int middle = low + (high - low) / 2;
            if (m_curve->GetPointTime(middle) < time)
                low = middle + 1;
            else
                high = middle;
        }
        return low;
    }

    // Refuses an edit (qmx.EditRefused) that would make the curve recompute
    // key `index` (none when outside the keys) while its kind is free or
    // none; a `neighbour` of kind none is passed over by the curve. The lock
    // is held.
    void RequireRecomputable(int index, bool neighbour)
    {
        if (index < 0 || index >= m_curve->GetKeyFramesCount())
            return;
        const int kind = m_curve->GetInterpolationType(index);
        if (!FixedKind(kind) || (neighbour && kind == core::eKeyframeTypeNone))
            return;
        throw EditRefused("key " + std::to_string(index) + " is of kind " + KindName(kind) +
                          ": its tangents are kept as given, and this edit would make the module recompute them");
    }

    QMXComPtr<core::IKeyFrame> m_curve;  // the one reference this object holds
    std::mutex m_mutex;                  // the curve has no lock of its own
};

}  // namespace

void BindCurve(py::module_& m)
{
    py::class_<Curve>(m, "Curve", R"(One keyframed parameter curve of the module.

Keys are kept in time order and addressed by index (negative indexes count
from the end, as in Python); each has a time, a value, a kind (qmx.Kind) and
a left and right tangent (value units per second), which the module
computes for every kind but free and none. Between keys the kinds shape the
curve; before the first key and after the last the curve continues along
its end tangents (a constant or none kind holds the last value).

A curve is made empty, of type qmx.ParamType.DOUBLE, with the value range
-100 to 100 (which only value(t, clamp=True) applies). Edits that the module
would stop the process on are refused with ValueError before the call;
IndexError for a key that does not exist; TypeError for a value that is
neither a number nor a bool.)")
        .def(py::init<>(), "An empty curve, made by the module's factory.")
        .def("__len__", &Curve::Count, "The number of keys.")
        .def("__getitem__", &Curve::Key, py::arg("index"),
             "The key at `index` as qmx.Key(time, value, kind, left, right).")
        .def("__repr__", &Curve::Repr)
        .def("add", &Curve::Add, py::arg("time"), py::arg("value"), py::arg_v("kind", 1, "Kind.LINEAR"),
             R"(Adds a key and returns its index; a key already at `time` is replaced.

The module computes the new key's tangents and its neighbours'. On a curve of
type BOOL or STRING every key is constant. Kinds FREE and NONE are refused
(ValueError), as is a time that is not finite.)")
        .def("remove", &Curve::Remove, py::arg("index"),
             "Removes the key at `index`; its neighbours' tangents are recomputed.")
        .def("value", &Curve::Value, py::arg("time"), py::arg("clamp") = false,
             R"(The curve's value at `time`, typed by the curve's type (float, int or bool).

With clamp=True the value is held within the curve's range. An empty curve
gives 0.)")
        .def("sample", &Curve::Sample, py::arg("times"), py::arg("clamp") = false,
             R"(The curve's values at each of `times` (any one-dimensional sequence of numbers)
as a NumPy array of float64 of the same length; bools give 0 and 1.

Computed without the Python interpreter's lock.)")
        .def("set_value", &Curve::SetValue, py::arg("index"), py::arg("value"),
             "Gives key `index` a new value; the key's and its neighbours' tangents are recomputed.")
        .def("set_time", &Curve::SetTime, py::arg("index"), py::arg("time"), py::arg("replace") = false,
             R"(Moves key `index` to `time`. Landing on another key's time replaces that key
only with replace=True; otherwise qmx.EditRefused.)")
        .def("set_kind", &Curve::SetKind, py::arg("index"), py::arg("kind"),
             "Gives key `index` another kind (not FREE or NONE); its tangents and its neighbours' are recomputed.")
        .def("set_tangents", &Curve::SetTangents, py::arg("index"), py::arg("left"), py::arg("right"),
             R"(Sets key `index`'s left and right tangents by hand. The key keeps its kind:
a key of an automatic kind gets computed tangents again when a neighbour is
edited.)")
        .def("kind", &Curve::Kind, py::arg("index"), "The kind (qmx.Kind) of key `index`.")
        .def("index_at", &Curve::IndexAt, py::arg("time"),
             "The index of the key at exactly `time`, or None.")
        .def_property("range", &Curve::Range, &Curve::SetRange,
                      "The value range (low, high) that value(t, clamp=True) holds values within.")
        .def_property("type", &Curve::Type, &Curve::SetType,
                      "The curve's type (qmx.ParamType); setting it resets the range to that type's default.")
        .def("to_json", &Curve::ToJson, "The curve (type, range, keys with kinds and tangents) as one line of JSON.")
        .def("from_json", [](py::object self, const std::string& text) {
                 self.cast<Curve&>().FromJson(text);
                 return self;
             },
             py::arg("text"),
             R"(Replaces the curve by the one `text` describes (as to_json writes it) and
returns the curve. A text that the module does not read back whole is
refused with ValueError, leaving the curve as it was; tangents and kinds,
FREE and NONE included, are taken as given.)")
        .def("clear", &Curve::Clear, "Removes every key.")
        .def("copy", &Curve::Copy, "A new curve with this curve's keys, type and range.");
}

}  // namespace qmxpy
