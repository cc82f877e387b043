// core::Parameter: one keyframed parameter curve. Keys are kept ordered and
// unique by time; every edit changes a key and then recomputes the automatic
// tangents of the edited key and its two neighbours. The curve has no lock:
// its users serialise changes (the track holds its mutex); const reads may
// run on several threads at once.
#pragma once

#include <string>
#include <utility>

#include "CurveCodec.h"
#include "IKeyFrame.h"
#include "KeyStore.h"
#include "SegmentMath.h"
#include "TimeValuePair.h"
#include "qmx_export.h"
#include "qmx_saturate.h"
#include "scombase.h"

namespace core {

// Gathers the data of the segment around *t, whose end key is `itup` (the
// first key after *t, or the end). Before the first key and from the last key
// on, the missing key is the phantom of Interpolation::kPhantomKeyDistance.
void interParams(const KeyStore& keyFrames, const double* t, KeyStore::const_iterator itup,
                 double* tStart, ValAny* vStart, double* dStart, KeyframeInterpolationType* kStart,
                 double* tEnd, ValAny* vEnd, double* dEnd, KeyframeInterpolationType* kEnd);

class Parameter final : public scombase::CUnknown, public IKeyFrame {
public:
    enum ParameterChangedReasonEnum {
        eChangedReasonDerivatives = 0,  // the key is settled: refresh its neighbours only
        eChangedReasonKeyframe = 1,     // the key changed: refresh it, then its neighbours
    };
    using iterator = KeyStore::iterator;
    using const_iterator = KeyStore::const_iterator;

    // A component's curve: type double, no keys, range [-100.0, 100.0].
    explicit Parameter(IUnknown* pOuter);
    // A curve of `type` with that type's default range. The time, value and
    // kind are ignored: no key is created.
    Parameter(double time, ValAny value, KeyframeInterpolationType interp, ParameterTypeEnum type);
    ~Parameter() override;

    // IUnknown: forwarded to the owner.
    HRESULT QueryInterface(const _GUID& iid, void** ppv) override;
    uint32_t AddRef() override;
    uint32_t Release() override;
    // Answers IID_IQMXKeyFrameKV with core::IKeyFrame, then IID_IUnknown.
    HRESULT NonDelegatingQueryInterface(const _GUID& iid, void** ppv) override;

    // Lookup and evaluation.
    ValAny GetValue(double time, bool clamp) const override;
    int AddPoint(double time, ValAny value, KeyframeInterpolationType kind) override;
    void AddPointWithoutIndex(double time, ValAny value, KeyframeInterpolationType kind) override;
    void RemovePoint(int index) override;
    ValAny GetPointValue(int index) const override;
    double GetPointTime(int index) const override;
    KeyframeInterpolationType GetInterpolationType(int index) const override;
    void GetPointControlParam(int index, double& left, double& right) const override;
    void SetValueRange(ValAny minValue, ValAny maxValue) override;
    void SetPointValue(int index, ValAny value) override;
    void SetPointTime(int index, double time) override;
    void SetPointInterpolationType(int index, KeyframeInterpolationType kind) override;
    void SetPointControlParam(int index, double left, double right) override;
    int GetKeyFramesCount() const override;
    void SetParameterType(ParameterTypeEnum type) override;
    ParameterTypeEnum GetParameterType() const override;
    void GetValueRange(ValAny& minValue, ValAny& maxValue) const override;
    std::string Serialize() const override;
    HRESULT Desialize(const char* text) override;
    bool CopyFrom(const IKeyFrame* other) override;
    void Clear() override;
    int getTimeValuePairIndex(double time) override;

    // Key `index`; throws std::out_of_range "keyframe index out of range" for
    // an index at or past the count, and for a negative one.
    const_iterator atIndex(int index) const;
    iterator atIndex(int index);
    // The key at exactly `time`, else the end.
    const_iterator find(double time) const;
    static const_iterator findWithTime(const KeyStore& keys, double time);
    static iterator findWithTime(KeyStore& keys, double time);

    // Whether the range clamps at all (the full double range and
    // [-2147483647, 2147483647] are the no-clamp sentinels).
    bool mustClamp() const;
    ValAny clampValueToCurveYRange(ValAny value) const;
    // A segment kept between samples by a caller that serialises them (the
    // track, under its mutex), with the times [from, to) it evaluates; none
    // when from > to.
    struct RememberedSegment {
        Interpolation::CubicSegment segment;
        double from = 1.0, to = 0.0;
    };
    // GetValue(time, false).Get<double>(), through `remembered` when it
    // evaluates `time`, which it is made to when not. The caller forgets it
    // whenever the curve changes.
    double Sample(double time, RememberedSegment& remembered) const;
    // Power-basis coefficients, in the normalised segment parameter, of the
    // segment evaluated at `time`. Fatal on an empty curve.
    void GetCubicCoeffs(double time, double& c0, double& c1, double& c2, double& c3) const;
    // Number of keys with t0 <= time <= t1.
    int GetNKeyFramesInRange(double t0, double t1) const;
    // The curve as its text carries it (CurveCodec.h): Serialize writes
    // these, Desialize reads a text and applies it.
    CurveTextHeader TextHeader() const { return {paramType, minValue, maxValue}; }
    const KeyStore& Keys() const { return timeValueSets; }
    // Takes the type of a text read and, for the types with persisted values,
    // its range, and merges its keys in as stored: an existing key at the
    // same time wins, and no tangent is recomputed. Leaves the content's
    // keys in an unspecified state.
    void Apply(CurveTextContent& content);

    // Neighbour queries copy the chosen key and return true; false (and the
    // record untouched) when there is none.
    bool GetNextKeyframeTime(double time, TimeValuePair* out) const;      // first key after
    bool GetPreviousKeyframeTime(double time, TimeValuePair* out) const;  // last key before
    // The first key at or after `time`, else the last key (not the closest).
    bool GetNearestKeyFrameWithTime(double time, TimeValuePair* out) const;

    // Editing steps.
    // Inserts `key`, replacing a key at the same time; the flag is true when
    // the time was new.
    std::pair<iterator, bool> addTimeValuePair(const TimeValuePair& key);
    void removeKeyFrame(iterator key);
    // Writes hand-set tangents into key `index` and refreshes its neighbours;
    // returns a copy of the key and its index through `outIndex` (if given).
    TimeValuePair setKeyFrameDerivativesInternal(double left, double right, int index, int* outIndex);
    iterator evaluateCurveChanged(ParameterChangedReasonEnum reason, iterator key);
    iterator refreshDerivatives(ParameterChangedReasonEnum reason, iterator key);

private:
    // The segment that evaluates `time` on a curve with keys, and (when
    // asked) the times [from, to) that the same segment evaluates: those
    // whose first later key is the same. GetValue evaluates through it.
    Interpolation::CubicSegment SegmentAt(double time, double* from, double* to) const;
    // The number that GetValue(time, false).Get<double>() gives where the
    // segment's value is `interpolated`: truncated on an int curve, and
    // core::AnyBadAccess on a bool curve.
    double NumberFrom(double interpolated) const
    {
        if (paramType == eParameterTypeBool)
            throw AnyBadAccess();
        return paramType == eParameterTypeInt ? qmx::SaturatedInt(interpolated) : interpolated;
    }
    // Resets the range to the default of `type` (types 0 to 3 only).
    void setDefaultRange(ParameterTypeEnum type);
    // The first key after `time` / at or after it; the end for NaN.
    const_iterator firstAfter(double time) const;
    const_iterator firstAtOrAfter(double time) const;
    // Index of a key counted from the first.
    int indexOf(const_iterator key) const;
    // Puts `key` in the place of key `it`, then refreshes.
    void replaceKey(iterator it, const TimeValuePair& key);
    // Adds a key as AddPoint does; returns where it went.
    iterator addPoint(double time, const ValAny& value, KeyframeInterpolationType kind);

    ParameterTypeEnum paramType;
    KeyStore timeValueSets;
    ValAny minValue;
    ValAny maxValue;
};

}  // namespace core

// Creation function of the curve class: one reference taken, 0 in *phr.
QMX_EXPORT scombase::CUnknown* CreateKeyFrameKVInstance(IUnknown* pOuter, int* phr);
