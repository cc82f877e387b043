// The parameter curve: storage, lookup, evaluation, editing with tangent
// maintenance, and its component face. Its text is written and read by the
// codec of CurveCodec.h; the curve only adapts it.
#include "keyframe_process.h"

#include <cfloat>
#include <cmath>
#include <iterator>
#include <optional>
#include <stdexcept>

#include "CurveCodecLibrary.h"
#include "Interpolation.h"
#include "QMXKeyFrameGuids.h"
#include "qmx_check.h"

namespace core {

namespace {

// The keys of the segment around a time whose first later key is `itup` (the
// end when there is none). Before the first key and from the last key on,
// the missing key is the phantom of Interpolation::kPhantomKeyDistance.
// Values are referred to where they are stored. [from, to) are the times
// whose first later key is `itup`: those the same segment evaluates.
struct SegmentKeys {
    double tStart, dStart, tEnd, dEnd;
    const ValAny* vStart;
    const ValAny* vEnd;
    KeyframeInterpolationType kStart, kEnd;
    double from, to;
};

inline SegmentKeys SegmentAround(const KeyStore& keyFrames, KeyStore::const_iterator itup)
{
    SegmentKeys s;
    const auto endFrom = [&](KeyStore::const_iterator key) {
        s.tEnd = key->GetTime();
        s.vEnd = &key->StoredValue();
        s.dEnd = key->GetLeftDerivative();
        s.kEnd = key->GetInterpolation();
    };
    if (itup == keyFrames.begin()) {
        endFrom(itup);
        s.tStart = Interpolation::phantomTimeBefore(s.tEnd);
        s.vStart = s.vEnd;
        s.dStart = 0.0;
        s.kStart = eKeyframeTypeNone;
        s.from = -HUGE_VAL;
        s.to = s.tEnd;
        return s;
    }
    const KeyStore::const_iterator itcur = std::prev(itup);
    s.tStart = itcur->GetTime();
    s.vStart = &itcur->StoredValue();
    s.dStart = itcur->GetRightDerivative();
    s.kStart = itcur->GetInterpolation();
    s.from = s.tStart;
    if (itup == keyFrames.end()) {
        s.tEnd = Interpolation::phantomTimeAfter(s.tStart);
        s.vEnd = s.vStart;
        s.dEnd = 0.0;
        s.kEnd = eKeyframeTypeNone;
        s.to = HUGE_VAL;
        return s;
    }
    endFrom(itup);
    s.to = s.tEnd;
    return s;
}

}  // namespace

void interParams(const KeyStore& keyFrames, const double* t, KeyStore::const_iterator itup,
                 double* tStart, ValAny* vStart, double* dStart, KeyframeInterpolationType* kStart,
                 double* tEnd, ValAny* vEnd, double* dEnd, KeyframeInterpolationType* kEnd)
{
    QMX_CHECK(keyFrames.size() >= 1);
    QMX_CHECK(itup == keyFrames.end() || *t < itup->GetTime());
    if (itup != keyFrames.begin() && itup != keyFrames.end()) {
        const KeyStore::const_iterator itcur = std::prev(itup);
        QMX_CHECK(itcur->GetTime() <= *t);
    }
    const SegmentKeys s = SegmentAround(keyFrames, itup);
    *tStart = s.tStart;
    *vStart = *s.vStart;
    *dStart = s.dStart;
    *kStart = s.kStart;
    *tEnd = s.tEnd;
    *vEnd = *s.vEnd;
    *dEnd = s.dEnd;
    *kEnd = s.kEnd;
}

// ---- construction and the component face ----

Parameter::Parameter(IUnknown* pOuter)
    : CUnknown(pOuter), paramType(eParameterTypeDouble), minValue(-100.0), maxValue(100.0)
{
}

Parameter::Parameter(double /*time*/, ValAny /*value*/, KeyframeInterpolationType /*interp*/,
                     ParameterTypeEnum type)
    : CUnknown(nullptr), paramType(type)
{
    setDefaultRange(type);
}

Parameter::~Parameter()
{
    timeValueSets.clear();
}

HRESULT Parameter::QueryInterface(const _GUID& iid, void** ppv)
{
    return m_pOwner->QueryInterface(iid, ppv);
}

uint32_t Parameter::AddRef()
{
    return m_pOwner->AddRef();
}

uint32_t Parameter::Release()
{
    return m_pOwner->Release();
}

HRESULT Parameter::NonDelegatingQueryInterface(const _GUID& iid, void** ppv)
{
    if (IsEqualGUID(iid, IID_IQMXKeyFrameKV)) {
        if (ppv == nullptr)
            return E_POINTER;
        *ppv = static_cast<IKeyFrame*>(this);
        AddRef();
        return S_OK;
    }
    return CUnknown::NonDelegatingQueryInterface(iid, ppv);
}

// ---- type and range ----

void Parameter::setDefaultRange(ParameterTypeEnum type)
{
    switch (type) {
    case eParameterTypeDouble:
        minValue = ValAny(-100.0);
        maxValue = ValAny(100.0);
        break;
    case eParameterTypeInt:
        minValue = ValAny(-100);
        maxValue = ValAny(100);
        break;
    case eParameterTypeBool:
        minValue = ValAny(false);
        maxValue = ValAny(true);
        break;
    case eParameterTypeString:
        minValue = ValAny("");
        maxValue = ValAny("");
        break;
    default:
        break;
    }
}

void Parameter::SetParameterType(ParameterTypeEnum type)
{
    paramType = type;
    setDefaultRange(type);
}

ParameterTypeEnum Parameter::GetParameterType() const
{
    return paramType;
}

void Parameter::SetValueRange(ValAny newMin, ValAny newMax)
{
    minValue = newMin;
    maxValue = newMax;
}

void Parameter::GetValueRange(ValAny& outMin, ValAny& outMax) const
{
    outMin = minValue;
    outMax = maxValue;
}

bool Parameter::mustClamp() const
{
    switch (paramType) {
    case eParameterTypeInt:
        return !(minValue.Get<int>() == -2147483647 && maxValue.Get<int>() == 2147483647);
    case eParameterTypeDouble:
        return !(minValue.Get<double>() == -DBL_MAX && maxValue.Get<double>() == DBL_MAX);
    default:
        return false;
    }
}

ValAny Parameter::clampValueToCurveYRange(ValAny value) const
{
    switch (paramType) {
    case eParameterTypeDouble: {
        const double v = value.Get<double>();
        if (v > maxValue.Get<double>())
            return maxValue;
        if (minValue.Get<double>() > v)
            return minValue;
        return value;
    }
    case eParameterTypeInt: {
        const int v = value.Get<int>();
        if (v > maxValue.Get<int>())
            return maxValue;
        if (v < minValue.Get<int>())
            return minValue;
        return value;
    }
    case eParameterTypeBool: {
        const bool v = value.Get<bool>();
        if (v && !maxValue.Get<bool>())
            return maxValue;
        if (minValue.Get<bool>() && !v)
            return minValue;
        return value;
    }
    default:
        return value;
    }
}

// ---- lookup ----

int Parameter::GetKeyFramesCount() const
{
    return static_cast<int>(timeValueSets.size());
}

Parameter::const_iterator Parameter::atIndex(int index) const
{
    return const_cast<Parameter*>(this)->atIndex(index);
}

Parameter::iterator Parameter::atIndex(int index)
{
    if (index < 0 || index >= GetKeyFramesCount())
        throw std::out_of_range("keyframe index out of range");
    return timeValueSets.find_by_order(static_cast<size_t>(index));
}

int Parameter::indexOf(const_iterator key) const
{
    return static_cast<int>(timeValueSets.order_of(key));
}

Parameter::const_iterator Parameter::findWithTime(const KeyStore& keys, double time)
{
    return findWithTime(const_cast<KeyStore&>(keys), time);
}

Parameter::iterator Parameter::findWithTime(KeyStore& keys, double time)
{
    const iterator it = keys.lower_bound(time);
    return it != keys.end() && it->GetTime() == time ? it : keys.end();
}

Parameter::const_iterator Parameter::find(double time) const
{
    return findWithTime(timeValueSets, time);
}

int Parameter::getTimeValuePairIndex(double time)
{
    const const_iterator it = find(time);
    return it == timeValueSets.end() ? -1 : indexOf(it);
}

ValAny Parameter::GetPointValue(int index) const
{
    return atIndex(index)->GetValue();
}

double Parameter::GetPointTime(int index) const
{
    return atIndex(index)->GetTime();
}

KeyframeInterpolationType Parameter::GetInterpolationType(int index) const
{
    return atIndex(index)->GetInterpolation();
}

void Parameter::GetPointControlParam(int index, double& left, double& right) const
{
    const const_iterator it = atIndex(index);
    left = it->GetLeftDerivative();
    right = it->GetRightDerivative();
}

// NaN compares false with every time, so searches for it would stop
// anywhere; these answer as a walk over the keys does.
Parameter::const_iterator Parameter::firstAfter(double time) const
{
    return std::isnan(time) ? timeValueSets.end() : timeValueSets.upper_bound(time);
}

Parameter::const_iterator Parameter::firstAtOrAfter(double time) const
{
    return std::isnan(time) ? timeValueSets.end() : timeValueSets.lower_bound(time);
}

int Parameter::GetNKeyFramesInRange(double t0, double t1) const
{
    // Keys below t0 are skipped (none is below NaN); keys up to t1 are counted
    // (none is at or below NaN).
    if (std::isnan(t1))
        return 0;
    const size_t first = std::isnan(t0) ? 0 : timeValueSets.order_of(timeValueSets.lower_bound(t0));
    const size_t last = timeValueSets.order_of(firstAfter(t1));
    return last > first ? static_cast<int>(last - first) : 0;
}

bool Parameter::GetNextKeyframeTime(double time, TimeValuePair* out) const
{
    const const_iterator it = firstAfter(time);
    if (it == timeValueSets.end())
        return false;
    *out = *it;
    return true;
}

bool Parameter::GetPreviousKeyframeTime(double time, TimeValuePair* out) const
{
    const const_iterator it = firstAtOrAfter(time);
    if (std::isnan(time) || it == timeValueSets.begin())
        return false;
    *out = *std::prev(it);
    return true;
}

bool Parameter::GetNearestKeyFrameWithTime(double time, TimeValuePair* out) const
{
    if (timeValueSets.empty())
        return false;
    const_iterator it = firstAtOrAfter(time);
    if (it == timeValueSets.end())
        it = std::prev(timeValueSets.end());
    *out = *it;
    return true;
}

// ---- evaluation ----

// Inlined into both of its callers: a call here costs a quarter of an
// evaluation.
[[gnu::always_inline]] inline Interpolation::CubicSegment Parameter::SegmentAt(double time, double* from,
                                                                              double* to) const
{
    // The segment as interParams gathers it (the first key after `time`, as
    // its checks ask for), read where the keys are stored instead of copied.
    // Playback asks for times in order, so the search starts where the last
    // one ended.
    const const_iterator itup = std::isnan(time) ? timeValueSets.end() : timeValueSets.upper_bound_near(time);
    const SegmentKeys s = SegmentAround(timeValueSets, itup);
    if (from != nullptr) {
        *from = s.from;
        *to = s.to;
    }
    return Interpolation::cubicSegment(s.tStart, Interpolation::numberOf(*s.vStart), s.dStart, s.dEnd, s.tEnd,
                                       Interpolation::numberOf(*s.vEnd), s.kStart, s.kEnd);
}

double Parameter::Sample(double time, RememberedSegment& remembered) const
{
    if (!(remembered.from <= time && time < remembered.to)) {
        if (timeValueSets.empty())
            return 0.0;  // GetValue's int 0, read as a double
        remembered.segment = SegmentAt(time, &remembered.from, &remembered.to);
    }
    return NumberFrom(Interpolation::valueAt(remembered.segment, time));
}

ValAny Parameter::GetValue(double time, bool clamp) const
{
    if (timeValueSets.empty())
        return ValAny(0);
    ValAny value(Interpolation::valueAt(SegmentAt(time, nullptr, nullptr), time));
    if (clamp && (paramType == eParameterTypeDouble || paramType == eParameterTypeInt) && mustClamp())
        value = clampValueToCurveYRange(value);
    switch (paramType) {
    case eParameterTypeBool:
        return ValAny(value.Get<double>() != 0.0);
    case eParameterTypeInt:
        return ValAny(qmx::SaturatedInt(value.Get<double>()));
    default:
        return value;
    }
}

void Parameter::GetCubicCoeffs(double time, double& c0, double& c1, double& c2, double& c3) const
{
    const const_iterator itup = firstAfter(time);
    double tStart, dStart, tEnd, dEnd;
    ValAny vStart, vEnd;
    KeyframeInterpolationType kStart, kEnd;
    interParams(timeValueSets, &time, itup, &tStart, &vStart, &dStart, &kStart, &tEnd, &vEnd, &dEnd, &kEnd);
    const Interpolation::HermiteSegment seg = Interpolation::normaliseSegment(
        tStart, vStart.Get<double>(), dStart, dEnd, tEnd, vEnd.Get<double>(), kStart, kEnd);
    Interpolation::hermiteToCubicCoeffs(seg.p0, seg.m0, seg.m1, seg.p1, &c0, &c1, &c2, &c3);
}

// ---- editing ----

std::pair<Parameter::iterator, bool> Parameter::addTimeValuePair(const TimeValuePair& key)
{
    const std::pair<iterator, bool> inserted = timeValueSets.insert(key);
    if (!inserted.second)
        *inserted.first = key;  // the same time: the place is the same
    return inserted;
}

Parameter::iterator Parameter::addPoint(double time, const ValAny& value, KeyframeInterpolationType kind)
{
    if (paramType == eParameterTypeBool || paramType == eParameterTypeString)
        kind = eKeyframeTypeConstant;
    iterator it = addTimeValuePair(TimeValuePair(time, value, kind, 0.0, 0.0)).first;
    return evaluateCurveChanged(eChangedReasonKeyframe, it);
}

int Parameter::AddPoint(double time, ValAny value, KeyframeInterpolationType kind)
{
    return indexOf(addPoint(time, value, kind));
}

void Parameter::AddPointWithoutIndex(double time, ValAny value, KeyframeInterpolationType kind)
{
    addPoint(time, value, kind);
}

void Parameter::RemovePoint(int index)
{
    if (index == -1)
        return;
    // Other negative indexes compare as huge unsigned numbers; the count itself
    // passes this test and throws from atIndex.
    if (timeValueSets.size() < static_cast<uint64_t>(static_cast<int64_t>(index)))
        return;
    removeKeyFrame(atIndex(index));
}

void Parameter::removeKeyFrame(iterator key)
{
    // The first key's "before" neighbour wraps around to the last key when
    // more than two keys exist.
    std::optional<TimeValuePair> before;
    std::optional<TimeValuePair> after;
    if (key != timeValueSets.begin())
        before = *std::prev(key);
    else if (timeValueSets.size() > 2)
        before = *std::prev(timeValueSets.end());
    if (std::next(key) != timeValueSets.end())
        after = *std::next(key);
    timeValueSets.erase(key);
    for (const std::optional<TimeValuePair>& neighbour : {before, after})
        if (neighbour)
            refreshDerivatives(eChangedReasonDerivatives, findWithTime(timeValueSets, neighbour->GetTime()));
}

void Parameter::replaceKey(iterator it, const TimeValuePair& key)
{
    // A key that keeps its place among its neighbours is changed where it is
    // (the order of the set depends on times alone); one that passes a
    // neighbour, or lands on another key's time, is taken out and inserted
    // again, replacing the key there.
    const double time = key.GetTime();
    const iterator next = std::next(it);
    if (time == it->GetTime() || ((it == timeValueSets.begin() || std::prev(it)->GetTime() < time) &&
                                  (next == timeValueSets.end() || time < next->GetTime()))) {
        *it = key;
        timeValueSets.retime(it, time);  // the store's first times follow the key
        evaluateCurveChanged(eChangedReasonKeyframe, it);
        return;
    }
    timeValueSets.erase(it);
    evaluateCurveChanged(eChangedReasonKeyframe, addTimeValuePair(key).first);
}

void Parameter::SetPointValue(int index, ValAny value)
{
    const iterator it = atIndex(index);
    const TimeValuePair& key = *it;
    bool unchanged = false;
    switch (paramType) {
    case eParameterTypeDouble: {
        const double stored = key.GetValue().Get<double>();
        unchanged = value.IsNumber() && value.Get<double>() == stored;
        break;
    }
    case eParameterTypeInt: {
        const int stored = key.GetValue().Get<int>();
        unchanged = value.IsInteger() && value.GetLow32() == stored;
        break;
    }
    case eParameterTypeBool: {
        const bool stored = key.GetValue().Get<bool>();
        unchanged = value.GetTypeTag() == ValAny::kBool && value.Get<bool>() == stored;
        break;
    }
    case eParameterTypeString:
        return;  // text curves ignore value changes
    default:
        break;
    }
    if (unchanged)
        return;
    TimeValuePair changed = key;
    changed.SetValue(value);
    replaceKey(it, changed);
}

void Parameter::SetPointTime(int index, double time)
{
    const iterator it = atIndex(index);
    if (it->GetTime() == time)
        return;
    TimeValuePair moved = *it;
    moved.SetTime(time);
    replaceKey(it, moved);
}

void Parameter::SetPointInterpolationType(int index, KeyframeInterpolationType kind)
{
    const iterator it = atIndex(index);
    if (it->GetInterpolation() == kind)
        return;
    TimeValuePair retyped = *it;
    retyped.SetInterpolation(kind);
    replaceKey(it, retyped);
}

void Parameter::SetPointControlParam(int index, double left, double right)
{
    int scratch = 0;
    setKeyFrameDerivativesInternal(left, right, index, &scratch);
}

TimeValuePair Parameter::setKeyFrameDerivativesInternal(double left, double right, int index, int* outIndex)
{
    iterator it = atIndex(index);
    QMX_CHECK(it != timeValueSets.end());
    if (!(it->GetLeftDerivative() == left && it->GetRightDerivative() == right)) {
        it->SetLeftDerivative(left);
        it->SetRightDerivative(right);
        it = evaluateCurveChanged(eChangedReasonDerivatives, it);
    }
    if (outIndex != nullptr)
        *outIndex = indexOf(it);
    return *it;
}

Parameter::iterator Parameter::evaluateCurveChanged(ParameterChangedReasonEnum reason, iterator key)
{
    QMX_CHECK(key != timeValueSets.end());
    if (reason != eChangedReasonDerivatives)
        key = refreshDerivatives(eChangedReasonDerivatives, key);
    if (key != timeValueSets.begin()) {
        const iterator before = std::prev(key);
        if (before->GetInterpolation() != eKeyframeTypeNone)
            refreshDerivatives(eChangedReasonDerivatives, before);
    }
    const iterator after = std::next(key);
    if (after != timeValueSets.end() && after->GetInterpolation() != eKeyframeTypeNone)
        refreshDerivatives(eChangedReasonDerivatives, after);
    return key;
}

Parameter::iterator Parameter::refreshDerivatives(ParameterChangedReasonEnum reason, iterator key)
{
    // Checked first: every later step reads the key.
    QMX_CHECK(key != timeValueSets.end() && key->GetInterpolation() != eKeyframeTypeNone &&key->GetInterpolation() != eKeyframeTypeFree);
    const double tCur = key->GetTime();
    const double vCur = Interpolation::numberOf(key->StoredValue());

    // A missing neighbour is passed as the key itself with kind None; the
    // curve's end keys are passed as linear neighbours.
    double tPrev = tCur, vPrev = vCur, prevRight = 0.0;
    KeyframeInterpolationType kindPrev = eKeyframeTypeNone;
    if (key != timeValueSets.begin()) {
        const iterator prev = std::prev(key);
        tPrev = prev->GetTime();
        vPrev = Interpolation::numberOf(prev->StoredValue());
        prevRight = prev->GetRightDerivative();
        kindPrev = prev == timeValueSets.begin() ? eKeyframeTypeLinear : prev->GetInterpolation();
    }
    double tNext = tCur, vNext = vCur, nextLeft = 0.0;
    KeyframeInterpolationType kindNext = eKeyframeTypeNone;
    const iterator next = std::next(key);
    if (next != timeValueSets.end()) {
        tNext = next->GetTime();
        vNext = Interpolation::numberOf(next->StoredValue());
        nextLeft = next->GetLeftDerivative();
        kindNext = std::next(next) == timeValueSets.end() ? eKeyframeTypeLinear : next->GetInterpolation();
    }

    const KeyframeInterpolationType kind = key->GetInterpolation();
    const Interpolation::Slopes slopes = Interpolation::autoComputeDerivativesOfNumbers(
        kindPrev, kind, kindNext, tPrev, vPrev, tCur, vCur, tNext, vNext, prevRight, nextLeft);
    key->SetLeftDerivative(slopes.left);
    key->SetRightDerivative(slopes.right);
    if (reason != eChangedReasonDerivatives)
        evaluateCurveChanged(eChangedReasonDerivatives, key);
    return key;
}

// ---- text ----

std::string Parameter::Serialize() const
{
    return WriteCurveText(TextHeader(), timeValueSets);
}

HRESULT Parameter::Desialize(const char* text)
{
    if (text == nullptr)
        return 0;
    // The canonical form is read fast; any other text goes through the
    // library, and one that does not parse changes nothing.
    CurveTextContent content;
    std::string error;
    if (ReadCanonicalCurveText(text, content, error) || ReadCurveTextWithLibrary(text, content, error))
        Apply(content);
    return 0;
}

void Parameter::Apply(CurveTextContent& content)
{
    paramType = content.header.type;
    if (!HasPersistedValues(paramType))
        return;
    minValue = content.header.minValue;
    maxValue = content.header.maxValue;
    if (timeValueSets.empty()) {
        timeValueSets.swap(content.keys);
        return;
    }
    for (const TimeValuePair& key : content.keys)
        timeValueSets.insert(key);
}

// ---- copying ----

bool Parameter::CopyFrom(const IKeyFrame* other)
{
    if (other == nullptr || other == static_cast<const IKeyFrame*>(this))
        return true;
    const Parameter* source = static_cast<const Parameter*>(other);
    timeValueSets = source->timeValueSets;
    minValue = source->minValue;
    maxValue = source->maxValue;
    paramType = source->paramType;
    return true;
}

void Parameter::Clear()
{
    timeValueSets.clear();
}

}  // namespace core

scombase::CUnknown* CreateKeyFrameKVInstance(IUnknown* pOuter, int* phr)
{
    core::Parameter* curve = new core::Parameter(pOuter);
    curve->NonDelegatingAddRef();
    if (phr != nullptr)
        *phr = 0;
    return curve;
}
