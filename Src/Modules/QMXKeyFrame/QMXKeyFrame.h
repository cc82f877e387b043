// CQMXKeyFrame: the keyframe track of a clip's transform. Six curves, one per
// property key (0 angle, 1 position X, 2 position Y, 3 opacity, 4 scale X,
// 5 scale Y), kept in lockstep and exchanged as whole KeyFrameParam records.
// Curve 0 answers every question about key counts and times. One mutex per
// track serialises every operation, including the calls into its curves.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "IKeyFrame.h"
#include "IQMXKeyFrame.h"
#include "IQMXProperties.h"
#include "QMXComPtr.h"
#include "keyframe_process.h"
#include "qmx_export.h"
#include "scombase.h"

// Property names of the six curves by property key; also their names in a
// property bag.
extern const wchar_t* const KEYFRAMENAME[6];

// Creation function of the track class: one reference taken, 0 in *phr.
QMX_EXPORT scombase::CUnknown* CreateKeyFrameInstance(IUnknown* pOuter, int* phr);

class CQMXKeyFrame : scombase::CUnknown, public IQMXKeyFrame, public IQMXStorage {
public:
    // Creates the six curves (Init); exceptions pass to the caller.
    explicit CQMXKeyFrame(IUnknown* pOuter);

    // Answers IID_IQMXKeyFrame and IID_IQMXStorage, then IID_IUnknown.
    HRESULT NonDelegatingQueryInterface(const _GUID& iid, void** ppv) override;

    // IUnknown of both interfaces: forwarded to the owner.
    HRESULT QueryInterface(const _GUID& iid, void** ppv) override;
    uint32_t AddRef() override;
    uint32_t Release() override;

    // IQMXKeyFrame
    int GetKeyFrameCount() override;
    bool AddKeyFrame(KeyFrameParam& param, int& index) override;
    bool AddKeyFrame(KeyFrameParam& param) override;
    bool GetKeyFrame(int index, KeyFrameParam& param) override;
    bool DeleteKeyFrame(int index) override;
    bool SetKeyFrame(int index, const KeyFrameParam& param) override;
    void CleanAllKeyFrame() override;
    void CaculateKeyFrameIndex(int index, int nRate, int& nFrameIndex) override;
    bool GetKeyFrameIndex(int nFrameIndex, int nRate, int& index) override;
    bool ChangeKeyFramePosition(int index, double position) override;
    void CaculateKeyFramePosition(int nFrameIndex, int nRate, double& position) override;
    bool HasKeyFrame(int key) override;
    core::ValAny GetKeyFrameValue(int key, double position) override;
    bool GetKeyFrame(double position, KeyFrameParam& param) override;
    int GetKeyFrameIndex(double position) override;
    bool InKeyFrameRange(double position) override;

    // IQMXStorage
    HRESULT WriteTo(IQMXProperties* props) override;
    HRESULT ReadFrom(IQMXProperties* props) override;

    // (Re)creates all six curves empty, through the host's object creation.
    void Init();

private:
    friend scombase::CUnknown* CreateKeyFrameInstance(IUnknown* pOuter, int* phr);

    // Workers that run with m_mutex held and never take it.
    void CaculateKeyFrameIndexInternal(int index, int nRate, int& nFrameIndex);
    void SaveKeyFrameParam(IQMXProperties* props, int key, std::string& text);
    void LoadKeyFrameParam(IQMXProperties* props, int key, std::string& text);
    // The slot of curve `key`, inserting an empty one for a missing key.
    QMXComPtr<core::IKeyFrame>& Slot(int key);
    // Curve `key`, inserting an empty slot for a missing key; fatal when the
    // slot holds no curve.
    core::IKeyFrame& Curve(int key);
    // Puts `curve` into slot `key` (0..5), releasing the curve it held.
    void SetCurve(int key, const QMXComPtr<core::IKeyFrame>& curve);
    // Whether `index` names a key of curve 0; when not, reports it through
    // the host's logger with `format` and the reporting statement's `line`.
    bool CheckIndex(int index, const wchar_t* format, int line);
    // Adds a linear key from `param` to every curve, in value order.
    void AddToAllCurves(const KeyFrameParam& param);
    // Curve `key`'s number at `position`, as GetValue(position, false)
    // reads as a double.
    double Sample(int key, double position);
    // Drops the remembered segments: every change of a curve calls it.
    void Forget();

    std::map<int, QMXComPtr<core::IKeyFrame>> m_mapKeyFrame;
    std::mutex m_mutex;
    // The curves of slots 0..5 as m_mapKeyFrame holds them, so that the calls
    // of every frame skip the map; changed only with those slots (SetCurve).
    core::IKeyFrame* m_curves[6] = {};
    // The same curves when they are the module's own class, else null (a
    // host may serve its own class under the curve's identifier): only then
    // are they built and sampled without the interface.
    core::Parameter* m_own[6] = {};
    // Per own curve, the segment that the last sample used. Playback asks
    // for frames in order, so most samples reuse it.
    core::Parameter::RememberedSegment m_remembered[6];
};
