// The keyframe track: whole-keyframe edits across six curves, sampling,
// frame conversions and persistence into a host property bag.
#include "QMXKeyFrame.h"

#include <cwchar>
#include <utility>
#include <vector>

#include "QMXCommon.h"
#include "QMXKeyFrameGuids.h"
#include "QMXLogger.h"
#include "TrackProperties.h"
#include "qmx_check.h"

using qmx::kTrackProperties;

const wchar_t* const KEYFRAMENAME[6] = {
    kTrackProperties[0].bagName, kTrackProperties[1].bagName, kTrackProperties[2].bagName,
    kTrackProperties[3].bagName, kTrackProperties[4].bagName, kTrackProperties[5].bagName,
};

namespace {

using core::IKeyFrame;
using core::ValAny;

constexpr int kCurveCount = qmx::kTrackPropertyCount;
// Edits of values and times visit the curves in this order; deletions and
// clearing go by property key.
constexpr int kValueOrder[kCurveCount] = {0, 4, 5, 1, 2, 3};

// Segments of a curve text in the bag are at most this many wide characters.
constexpr int kSegmentLength = 51200;
constexpr int kOutOfRangeLevel = 80;

// This file's name as the out-of-range reports give it: the part after the
// last backslash, else after the last slash, else the whole path.
const wchar_t* SourceFileName()
{
    static const wchar_t* const name = [] {
        const wchar_t* path = L"" __FILE__;
        const wchar_t* cut = std::wcsrchr(path, L'\\');
        if (cut == nullptr)
            cut = std::wcsrchr(path, L'/');
        return cut != nullptr ? cut + 1 : path;
    }();
    return name;
}

// Logs a bad index through the host's default logger, when there is one and
// it takes the level.
void ReportOutOfRange(const wchar_t* format, int index, int count, int line)
{
    IQMXLogger* logger = QMXGetDefaultLogger();
    if (logger == nullptr || !logger->IsLevelEnabled(kOutOfRangeLevel))
        return;
    logger->WriteLog(kOutOfRangeLevel, format, index, count, SourceFileName(), line);
}

// A new empty curve from the host's object creation; empty if that failed.
QMXComPtr<IKeyFrame> NewCurve()
{
    QMXComPtr<IKeyFrame> curve;
    QMXCommon::GetInterface(CLSID_QMXKeyFrameKV, nullptr, 0, IID_IQMXKeyFrameKV,
                            reinterpret_cast<void**>(&curve));
    return curve;
}

// Name of segment `segment` of the property `name`.
void SegmentName(const wchar_t* name, int segment, wchar_t (&buffer)[128])
{
    std::wmemset(buffer, 0, 128);
    std::swprintf(buffer, 128, L"%lsSegment_%d", name, segment);
}

}  // namespace

CQMXKeyFrame::CQMXKeyFrame(IUnknown* pOuter) : CUnknown(pOuter)
{
    Init();
}

void CQMXKeyFrame::Init()
{
    for (int key = 0; key < kCurveCount; ++key)
        SetCurve(key, NewCurve());
}

HRESULT CQMXKeyFrame::NonDelegatingQueryInterface(const _GUID& iid, void** ppv)
{
    void* face = nullptr;
    if (IsEqualGUID(iid, IID_IQMXKeyFrame))
        face = static_cast<IQMXKeyFrame*>(this);
    else if (IsEqualGUID(iid, IID_IQMXStorage))
        face = static_cast<IQMXStorage*>(this);
    else
        return CUnknown::NonDelegatingQueryInterface(iid, ppv);
    if (ppv == nullptr)
        return E_POINTER;
    *ppv = face;
    AddRef();
    return S_OK;
}

HRESULT CQMXKeyFrame::QueryInterface(const _GUID& iid, void** ppv)
{
    return GetOwner()->QueryInterface(iid, ppv);
}

uint32_t CQMXKeyFrame::AddRef()
{
    return GetOwner()->AddRef();
}

uint32_t CQMXKeyFrame::Release()
{
    return GetOwner()->Release();
}

// Insert-on-miss without std::map::operator[], whose std::piecewise_construct
// would become an exported symbol of the module.
QMXComPtr<IKeyFrame>& CQMXKeyFrame::Slot(int key)
{
    auto it = m_mapKeyFrame.find(key);
    if (it == m_mapKeyFrame.end())
        it = m_mapKeyFrame.emplace(key, QMXComPtr<IKeyFrame>()).first;
    return it->second;
}

void CQMXKeyFrame::SetCurve(int key, const QMXComPtr<IKeyFrame>& curve)
{
    Slot(key) = curve;
    m_curves[key] = curve.Get();
    m_own[key] = dynamic_cast<core::Parameter*>(curve.Get());
    Forget();
}

void CQMXKeyFrame::Forget()
{
    for (core::Parameter::RememberedSegment& remembered : m_remembered)
        remembered = core::Parameter::RememberedSegment();
}

double CQMXKeyFrame::Sample(int key, double position)
{
    core::Parameter* own = m_own[key];
    if (own == nullptr)
        return Curve(key).GetValue(position, false).Get<double>();
    return own->Sample(position, m_remembered[key]);
}

IKeyFrame& CQMXKeyFrame::Curve(int key)
{
    if (key >= 0 && key < kCurveCount && m_curves[key] != nullptr)
        return *m_curves[key];
    IKeyFrame* curve = Slot(key).Get();
    QMX_CHECK(curve != nullptr);
    return *curve;
}

bool CQMXKeyFrame::CheckIndex(int index, const wchar_t* format, int line)
{
    const int count = Curve(0).GetKeyFramesCount();
    if (index >= 0 && index < count)
        return true;
    ReportOutOfRange(format, index, count, line);
    return false;
}

void CQMXKeyFrame::AddToAllCurves(const KeyFrameParam& param)
{
    Forget();
    for (int key : kValueOrder) {
        const ValAny value(param.*kTrackProperties[key].field);
        // The index AddPoint computes is not needed; only the module's own
        // curve is known to do the same without it.
        if (m_own[key] != nullptr)
            m_own[key]->AddPointWithoutIndex(param.dPosition, value, core::eKeyframeTypeLinear);
        else
            Curve(key).AddPoint(param.dPosition, value, core::eKeyframeTypeLinear);
    }
}

// ---- keyframes ----

int CQMXKeyFrame::GetKeyFrameCount()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return Curve(0).GetKeyFramesCount();
}

bool CQMXKeyFrame::AddKeyFrame(KeyFrameParam& param, int& index)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    AddToAllCurves(param);
    index = Curve(0).getTimeValuePairIndex(param.dPosition);
    return true;
}

bool CQMXKeyFrame::AddKeyFrame(KeyFrameParam& param)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    AddToAllCurves(param);
    return true;
}

bool CQMXKeyFrame::GetKeyFrame(int index, KeyFrameParam& param)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!CheckIndex(index, L"GetKeyFrame index is out of range! index:%d, count:%d  [%ls, %d]", __LINE__))
        return false;
    param.dPosition = Curve(0).GetPointTime(index);
    for (int key : kValueOrder)
        param.*kTrackProperties[key].field = Curve(key).GetPointValue(index).Get<double>();
    return true;
}

bool CQMXKeyFrame::DeleteKeyFrame(int index)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!CheckIndex(index, L"DeleteKeyFrame index is out of range! index:%d, count:%d  [%ls, %d]", __LINE__))
        return false;
    Forget();
    for (int key = 0; key < kCurveCount; ++key)
        Curve(key).RemovePoint(index);
    return true;
}

bool CQMXKeyFrame::SetKeyFrame(int index, const KeyFrameParam& param)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!CheckIndex(index, L"SetKeyFrame index is out of range! index:%d, count:%d  [%ls, %d]", __LINE__))
        return false;
    Forget();
    // Every value is written before any key moves.
    for (int key : kValueOrder)
        Curve(key).SetPointValue(index, ValAny(param.*kTrackProperties[key].field));
    for (int key : kValueOrder)
        Curve(key).SetPointTime(index, param.dPosition);
    return true;
}

void CQMXKeyFrame::CleanAllKeyFrame()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    Forget();
    for (int key = 0; key < kCurveCount; ++key)
        Curve(key).Clear();
}

bool CQMXKeyFrame::ChangeKeyFramePosition(int index, double position)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!CheckIndex(index, L"ChangeKeyFramePosition index is out of range! index:%d, count:%d  [%ls, %d]",
                    __LINE__))
        return false;
    Forget();
    for (int key : kValueOrder)
        Curve(key).SetPointTime(index, position);
    return true;
}

// ---- sampling and lookup ----

bool CQMXKeyFrame::HasKeyFrame(int key)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_mapKeyFrame.find(key);
    if (it == m_mapKeyFrame.end())
        return false;
    IKeyFrame* curve = it->second.Get();
    QMX_CHECK(curve != nullptr);
    return curve->GetKeyFramesCount() > 0;
}

ValAny CQMXKeyFrame::GetKeyFrameValue(int key, double position)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return Curve(key).GetValue(position, false);
}

bool CQMXKeyFrame::GetKeyFrame(double position, KeyFrameParam& param)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (Curve(0).GetKeyFramesCount() <= 0)
        return false;
    param.dPosition = position;
    for (int key : kValueOrder)
        param.*kTrackProperties[key].field = Sample(key, position);
    return true;
}

int CQMXKeyFrame::GetKeyFrameIndex(double position)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return Curve(0).getTimeValuePairIndex(position);
}

// A track with a single key is never in range, not even at that key.
bool CQMXKeyFrame::InKeyFrameRange(double position)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    IKeyFrame& reference = Curve(0);
    const int count = reference.GetKeyFramesCount();
    if (count < 2)
        return false;
    const double first = reference.GetPointTime(0);
    const double last = reference.GetPointTime(count - 1);
    return position >= first && last >= position;
}

// ---- frames ----

void CQMXKeyFrame::CaculateKeyFrameIndex(int index, int nRate, int& nFrameIndex)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    CaculateKeyFrameIndexInternal(index, nRate, nFrameIndex);
}

void CQMXKeyFrame::CaculateKeyFrameIndexInternal(int index, int nRate, int& nFrameIndex)
{
    nFrameIndex = QMXCommon::KeyFrame::CaculateKeyFrameIndex(Curve(0).GetPointTime(index), nRate);
}

bool CQMXKeyFrame::GetKeyFrameIndex(int nFrameIndex, int nRate, int& index)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const int count = Curve(0).GetKeyFramesCount();
    for (int i = 0; i < count; ++i) {
        int frame = -1;
        CaculateKeyFrameIndexInternal(i, nRate, frame);
        if (frame == nFrameIndex) {
            index = i;
            return true;
        }
    }
    return false;
}

// Touches no curve, so it takes no lock.
void CQMXKeyFrame::CaculateKeyFramePosition(int nFrameIndex, int nRate, double& position)
{
    const std::pair<int64_t, int64_t> rational =
        QMXCommon::KeyFrame::CaculateKeyFramePosition(nFrameIndex, nRate);
    position = static_cast<double>(rational.first) / static_cast<double>(rational.second);
}

// ---- persistence ----

HRESULT CQMXKeyFrame::WriteTo(IQMXProperties* props)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    // All texts are made before the bag is touched: a curve that cannot be
    // written (a value of the wrong kind for its type) throws with the bag
    // as it was, never half saved.
    std::vector<std::pair<int, std::string>> texts;
    texts.reserve(m_mapKeyFrame.size());
    for (auto& entry : m_mapKeyFrame) {
        IKeyFrame* curve = entry.second.Get();
        QMX_CHECK(curve != nullptr);
        texts.emplace_back(entry.first, curve->Serialize());
    }
    for (auto& [key, text] : texts)
        SaveKeyFrameParam(props, key, text);
    return S_OK;
}

// The count is one more than the segments written when the converted text
// (terminator included) fills its last segment exactly; readers then find no
// last segment and append nothing.
void CQMXKeyFrame::SaveKeyFrameParam(IQMXProperties* props, int key, std::string& text)
{
    const int length = static_cast<int>(text.size()) + 1;
    std::vector<wchar_t> wide(static_cast<size_t>(length), L'\0');
    QMXCommon::Char2WChar(text.c_str(), wide.data(), length);
    props->SetInt(KEYFRAMENAME[key], length / kSegmentLength + 1);
    // Each piece is handed over in place, ended by a zero written after it
    // for the call (the last piece ends with the text's own zero).
    wide.push_back(L'\0');
    wchar_t name[128];
    for (int start = 0, segment = 0; start < length; start += kSegmentLength, ++segment) {
        const int chunk = length - start <= kSegmentLength ? length - start : kSegmentLength;
        const wchar_t after = std::exchange(wide[static_cast<size_t>(start + chunk)], L'\0');
        SegmentName(KEYFRAMENAME[key], segment, name);
        props->SetString(name, wide.data() + start);
        wide[static_cast<size_t>(start + chunk)] = after;
    }
}

// Keys without a readable, positive segment count keep their curve; the
// others get a new curve loaded from the stored text, whatever it holds.
HRESULT CQMXKeyFrame::ReadFrom(IQMXProperties* props)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (int key = 0; key < kCurveCount; ++key) {
        int count = 0;
        const HRESULT hr = props->GetInt(KEYFRAMENAME[key], &count);
        if (FAILED(hr) || count <= 0)
            continue;
        std::string text;
        LoadKeyFrameParam(props, key, text);
        QMXComPtr<IKeyFrame> curve = NewCurve();
        QMX_CHECK(curve.Get() != nullptr);
        // A text of the wrong shape makes the curve's reader throw. Loading
        // reports no failure to the host: such a text gives a new, empty
        // curve, as an unparsable one does.
        try {
            curve->Desialize(text.c_str());
        } catch (const std::exception&) {
            curve = NewCurve();
            QMX_CHECK(curve.Get() != nullptr);
        }
        SetCurve(key, curve);
    }
    return S_OK;
}

// The text keeps the converted buffer's trailing zero; the curve reads it as
// a zero-terminated text.
void CQMXKeyFrame::LoadKeyFrameParam(IQMXProperties* props, int key, std::string& text)
{
    int count = 0;
    props->GetInt(KEYFRAMENAME[key], &count);
    std::wstring wide;
    wchar_t name[128];
    for (int segment = 0; segment < count; ++segment) {
        SegmentName(KEYFRAMENAME[key], segment, name);
        CQMXValue value;
        props->GetProperty(name, &value);
        wide += value.m_strValue;
    }
    // Converted straight into the text, zero-filled to its full length.
    const int length = static_cast<int>(wide.size()) + 1;
    text.assign(static_cast<size_t>(length), '\0');
    QMXCommon::WChar2Char(wide.c_str(), text.data(), length);
}

scombase::CUnknown* CreateKeyFrameInstance(IUnknown* pOuter, int* phr)
{
    CQMXKeyFrame* track = new CQMXKeyFrame(pOuter);
    track->NonDelegatingAddRef();
    if (phr != nullptr)
        *phr = 0;
    return track;
}
