// qmxkf validate: checks a build of the keyframe module against the host
// contract. Every check runs in a child process of its own, so a module that
// faults or hangs fails that check only and the later checks still run.
#include "Validate.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

#include "IKeyFrame.h"
#include "IQMXKeyFrame.h"
#include "ModuleHost.h"
#include "Output.h"
#include "QMXCommon.h"
#include "QMXLogger.h"
#include "QMXModule.h"
#include "QMXPropertyBag.h"
#include "Properties.h"

namespace qmxkf {

namespace {

using std::string;
using std::to_string;

// A failed expectation: ends the running check with a one-line message.
struct Failure {
    string message;
};

void Expect(bool ok, const string& message)
{
    if (!ok)
        throw Failure{message};
}

string Text(bool value) { return value ? "true" : "false"; }
string Text(double value) { return Number(value); }
template <typename T>
string Text(T value) { return to_string(value); }

// `what` names the value with its verb, e.g. "factory AddRef returned".
template <typename T>
void ExpectEq(const string& what, T got, T want)
{
    Expect(got == want, what + " " + Text(got) + ", expected " + Text(want));
}

void ExpectHr(const string& call, HRESULT got, HRESULT want)
{
    char text[64];
    std::snprintf(text, sizeof text, " returned 0x%08X, expected 0x%08X", uint32_t(got), uint32_t(want));
    Expect(got == want, call + text);
}

// AddRef and Release must report `count` + 1 and then `count` again.
void ExpectCount(const string& what, IUnknown* object, uint32_t count)
{
    ExpectEq(what + " AddRef returned", object->AddRef(), count + 1);
    ExpectEq(what + " Release returned", object->Release(), count);
}

string GuidText(const _GUID& g)
{
    char text[40];
    std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", g.Data1, g.Data2,
                  g.Data3, g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6],
                  g.Data4[7]);
    return text;
}

string Narrow(const std::wstring& text) { return string(text.begin(), text.end()); }  // ASCII names only

const struct {
    const char* name;
    _GUID value;
} kIdentifiers[] = {
    {"CLSID_QMXKeyFrame", {0x5AE1FA35, 0x448E, 0x42E6, {0x9C, 0x75, 0xBC, 0x1E, 0x8D, 0xBF, 0x89, 0x42}}},
    {"IID_IQMXKeyFrame", {0x17023CB6, 0x6191, 0x4B63, {0x8C, 0x9B, 0xEC, 0x29, 0x9C, 0xF1, 0x60, 0x54}}},
    {"CLSID_QMXKeyFrameKV", {0x7691319E, 0x2504, 0x4055, {0xB2, 0xB1, 0x5F, 0xD8, 0x4C, 0x87, 0x09, 0x58}}},
    {"IID_IQMXKeyFrameKV", {0x50A70D70, 0xD2D5, 0x42E4, {0xBF, 0x3B, 0xE0, 0x73, 0x6D, 0xDC, 0xD4, 0x9E}}},
    {"IID_IQMXStorage", {0xB58DC8D7, 0xB8EC, 0x4254, {0x81, 0x4F, 0xDF, 0x40, 0xF5, 0x72, 0xB3, 0x12}}},
    {"IID_IUnknown", {0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}},
    {"IID_IClassFactory", {0x00000001, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}},
};

// The served classes, in the order of their g_Templates rows.
const struct ServedClass {
    const char* clsid;
    const wchar_t* title;
    const char* create;              // the exported creation function
    std::vector<const char*> names;  // IID_IUnknown, then the interfaces the class answers
    const char* foreign;             // an interface of the module the class refuses
} kClasses[] = {
    {"CLSID_QMXKeyFrame", L"Create KeyFrame object", "_Z22CreateKeyFrameInstanceP8IUnknownPi",
     {"IID_IUnknown", "IID_IQMXKeyFrame", "IID_IQMXStorage"}, "IID_IQMXKeyFrameKV"},
    {"CLSID_QMXKeyFrameKV", L"Create KeyFrame Param", "_Z24CreateKeyFrameKVInstanceP8IUnknownPi",
     {"IID_IUnknown", "IID_IQMXKeyFrameKV"}, "IID_IQMXStorage"},
};

const std::vector<const char*> kExports = {
    "DllGetClassObject", "DllCanUnloadNow", "DllRegisterServer", "DllUnregisterServer", "g_Templates",
    "g_cTemplates", "CLSID_QMXKeyFrame", "IID_IQMXKeyFrame", "CLSID_QMXKeyFrameKV", "IID_IQMXKeyFrameKV",
    "IID_IQMXStorage", "_Z22CreateKeyFrameInstanceP8IUnknownPi", "_Z24CreateKeyFrameKVInstanceP8IUnknownPi",
    "_ZN8CFactory14s_cServerLocksE", "_ZN8CFactory9s_hModuleE", "_ZN13Interpolation9cubicEvalEddddd",
    "_ZN13Interpolation14cubicIntegrateEddddd", "_ZN13Interpolation20hermiteToCubicCoeffsEddddPdS0_S0_S0_",
    "_ZN13Interpolation11interpolateEdN4core6ValAnyEdddS1_dNS0_25KeyframeInterpolationTypeES2_",
    "_ZN13Interpolation9integrateEddddddddN4core25KeyframeInterpolationTypeES1_",
    "_ZN13Interpolation22autoComputeDerivativesEN4core25KeyframeInterpolationTypeES1_S1_"
    "dNS0_6ValAnyEdS2_dS2_ddPdS3_",
    "_ZN13Interpolation5solveEdddddddN4core25KeyframeInterpolationTypeES1_",
    "_ZN13Interpolation10solveCubicEddddPd"};

const std::vector<const char*> kHostSymbols = {
    "IID_IUnknown", "IID_IClassFactory", "InterlockedIncrement", "InterlockedDecrement",
    "QMXGetDefaultLogger", "QMXSetDefaultLogger", "_ZN9QMXCommon12GetInterfaceERK5_GUIDP8IUnknownjS2_PPv",
    "_ZN9QMXCommon10Char2WCharEPKcPwi", "_ZN9QMXCommon10WChar2CharEPKwPci",
    "_ZN9QMXCommon8KeyFrame21CaculateKeyFrameIndexEdi",
    "_ZN9QMXCommon8KeyFrame24CaculateKeyFramePositionEii"};

// A call that hands out an interface pointer through its last argument.
struct Handout {
    string call;
    HRESULT hr;
    void* out;

    // It must succeed with a pointer.
    template <typename T = IUnknown>
    T* Got() const
    {
        ExpectHr(call, hr, S_OK);
        Expect(out != nullptr && out != &kUntouched, call + " handed out no pointer");
        return static_cast<T*>(out);
    }
    // It must fail with `want` and set the pointer to null (or, when
    // `untouched`, leave the caller's value).
    void Refused(HRESULT want, bool untouched = false) const
    {
        ExpectHr(call, hr, want);
        Expect(untouched ? out == &kUntouched : out == nullptr,
               call + (untouched ? " wrote *ppv" : " left *ppv set"));
    }
    static inline char kUntouched;
};

// The module under test: its file, and its handle (loaded before any child runs).
struct Module {
    string path;
    void* handle;

    template <typename T>
    T Sym(const char* name) const
    {
        void* symbol = dlsym(handle, name);
        Expect(symbol != nullptr, string("the module does not export ") + name);
        return reinterpret_cast<T>(symbol);
    }
    const _GUID& Id(const char* name) const { return *Sym<const _GUID*>(name); }

    // The class id of g_Templates row `row`: DllGetClassObject is never asked
    // for an id the table does not list.
    const _GUID& RowClass(int row) const
    {
        const auto* rows = Sym<const CFactoryTemplate*>("g_Templates");
        const int count = *Sym<const int*>("g_cTemplates");
        for (int i = 0; i <= row; ++i)
            Expect(i < count && rows[i].m_pClsid, "g_Templates has no row " + to_string(row));
        return *rows[row].m_pClsid;
    }
    Handout ClassObject(int row, const char* iid) const
    {
        Handout h = {string("DllGetClassObject(") + kClasses[row].clsid + ", " + iid + ")", 0,
                     &Handout::kUntouched};
        h.hr = Sym<DllGetClassObjectFunction>("DllGetClassObject")(RowClass(row), Id(iid), &h.out);
        return h;
    }
    IClassFactory* Factory(int row) const
    {
        return ClassObject(row, "IID_IClassFactory").Got<IClassFactory>();
    }
    Handout Make(IClassFactory* factory, IUnknown* outer, const char* iid) const
    {
        Handout h = {string("CreateInstance(") + (outer ? "outer, " : "null, ") + iid + ")", 0,
                     &Handout::kUntouched};
        h.hr = factory->CreateInstance(outer, Id(iid), &h.out);
        return h;
    }
    Handout Query(IUnknown* object, const char* iid, const string& on = "") const
    {
        Handout h = {on + "QueryInterface(" + iid + ")", 0, &Handout::kUntouched};
        h.hr = object->QueryInterface(Id(iid), &h.out);
        return h;
    }
    // A new object through the host registry, as the track makes its curves.
    template <typename T>
    T* Create(int row, const char* iid) const
    {
        Handout h = {string("GetInterface(") + kClasses[row].clsid + ", " + iid + ")", 0, nullptr};
        h.hr = QMXCommon::GetInterface(RowClass(row), nullptr, 0, Id(iid), &h.out);
        return h.Got<T>();
    }
};

// The loaded object that contains `address`, or null.
const link_map* ObjectOf(const void* address)
{
    Dl_info info{};
    link_map* map = nullptr;
    const bool found = address && dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP);
    return found ? map : nullptr;
}

void CheckLoad(const Module& m)
{
    // Loaded first: the reason is only there once the load has failed.
    const bool loaded = QMXLoadModule(m.path.c_str()) != nullptr;
    Expect(loaded, loaded ? "" : QMXLastModuleError());
}

// The contract's exports are the module's own (`own`); the host's symbols
// resolve past the module, into the host runtime it links.
void CheckSymbols(const Module& m, const std::vector<const char*>& names, bool own)
{
    link_map* module = nullptr;
    dlinfo(m.handle, RTLD_DI_LINKMAP, &module);
    std::vector<string> wrong;
    for (const char* name : names) {
        const link_map* object = ObjectOf(dlsym(m.handle, name));
        if (own ? object != module : object == module || object == nullptr)
            wrong.push_back(own ? string("does not export ") + name
                                : object ? string("defines the host's ") + name + " itself"
                                         : string("cannot reach the host's ") + name);
    }
    if (wrong.size() > 1)
        wrong[0] += " (and " + to_string(wrong.size() - 1) + " more)";
    Expect(wrong.empty(), wrong.empty() ? "" : wrong[0]);
}
void CheckExports(const Module& m) { CheckSymbols(m, kExports, true); }
void CheckHostSymbols(const Module& m) { CheckSymbols(m, kHostSymbols, false); }

void CheckIdentifiers(const Module& m)
{
    for (const auto& id : kIdentifiers) {
        Expect(IsEqualGUID(m.Id(id.name), id.value),
               string(id.name) + " is " + GuidText(m.Id(id.name)) + ", expected " + GuidText(id.value));
    }
}

void CheckClassTable(const Module& m)
{
    auto* count = m.Sym<volatile int*>("g_cTemplates");
    ExpectEq("g_cTemplates is", int(*count), 3);
    auto* rows = m.Sym<CFactoryTemplate*>("g_Templates");
    for (int i = 0; i < 2; ++i) {
        const CFactoryTemplate& row = rows[i];
        const ServedClass& c = kClasses[i];
        const string at = "g_Templates row " + to_string(i);
        Expect(row.m_pName && std::wcscmp(row.m_pName, c.title) == 0,
               at + " is not named " + Narrow(c.title));
        Expect(row.m_pClsid && IsEqualGUID(*row.m_pClsid, m.Id(c.clsid)), at + " does not hold " + c.clsid);
        const void* exported = dlsym(m.handle, c.create);
        Expect(row.m_pfnCreate && (!exported || exported == reinterpret_cast<void*>(row.m_pfnCreate)),
               at + " does not create through " + c.create);
    }
    Expect(!rows[2].m_pName && !rows[2].m_pClsid && !rows[2].m_pfnCreate,
           "g_Templates row 2 is not all null");
    rows[2].m_pName = nullptr;  // both stay writable: read-only ones fault here
    *count = 3;
}

// A new factory per call, for IID_IUnknown and IID_IClassFactory only; it
// answers those two with itself.
void CheckClassFactory(const Module& m)
{
    for (int row = 0; row < 2; ++row) {
        m.ClassObject(row, kClasses[row].names[1]).Refused(E_NOINTERFACE, true);
        for (const char* iid : {"IID_IUnknown", "IID_IClassFactory"}) {
            auto* factory = m.ClassObject(row, iid).Got<IClassFactory>();
            ExpectCount("factory", factory, 1);
            for (const char* face : {"IID_IUnknown", "IID_IClassFactory"}) {
                Expect(m.Query(factory, face).Got() == factory,
                       string("factory QueryInterface(") + face + ") answered another pointer");
                ExpectCount("factory", factory, 2);
                ExpectEq("factory Release returned", factory->Release(), 1u);
            }
            m.Query(factory, kClasses[row].foreign, "factory ").Refused(E_NOINTERFACE);
            ExpectEq("factory's last Release returned", factory->Release(), 0u);
        }
    }
}

// Each interface makes a new object. One object answers each of its
// interfaces from each face with the same pointer, and refuses others.
void CheckInterfaces(const Module& m)
{
    for (int row = 0; row < 2; ++row) {
        const ServedClass& c = kClasses[row];
        IClassFactory* factory = m.Factory(row);
        std::vector<IUnknown*> faces;  // one object: faces[i] answers c.names[i]
        for (const char* iid : c.names) {
            faces.push_back(m.Make(factory, nullptr, iid).Got());
            const string made = string("new ") + iid + " object";
            ExpectCount(made, faces.back(), 1);
            if (faces.size() > 1)
                ExpectEq(made + "'s last Release returned", faces.back()->Release(), 0u);
        }
        for (size_t i = 1; i < faces.size(); ++i) {
            faces[i] = m.Query(faces[0], c.names[i]).Got();
            ExpectCount(string(c.names[i]) + " face", faces[i], uint32_t(i + 1));
            for (size_t j = 1; j < i; ++j)
                Expect(faces[i] != faces[j], string(c.names[j]) + " and " + c.names[i] + " are one pointer");
        }
        const auto refs = uint32_t(faces.size());
        for (size_t i = 0; i < faces.size(); ++i) {
            const string on = string("the ") + c.names[i] + " face's ";
            for (size_t j = 0; j < faces.size(); ++j) {
                const string call = on + "QueryInterface(" + c.names[j] + ")";
                IUnknown* face = m.Query(faces[i], c.names[j], on).Got();
                Expect(face == faces[j], call + " answered another pointer");
                ExpectEq(call + ", then Release returned", face->Release(), refs);
            }
            for (const char* wrong : {c.foreign, "IID_IClassFactory"})
                m.Query(faces[i], wrong, on).Refused(E_NOINTERFACE);
        }
        for (uint32_t i = 0; i < refs; ++i)
            ExpectEq(string(c.clsid) + " object Release returned", faces[i]->Release(), refs - 1 - i);
        m.Make(factory, nullptr, c.foreign).Refused(E_NOINTERFACE);
        ExpectEq("factory Release returned", factory->Release(), 0u);
    }
}

// An aggregating object: answers IID_IUnknown itself and counts what the
// faces of its inner object forward to it.
struct Outer final : IUnknown {
    HRESULT QueryInterface(const _GUID& iid, void** ppv) override
    {
        ++queries;
        *ppv = IsEqualGUID(iid, IID_IUnknown) ? this : nullptr;
        return *ppv ? (AddRef(), S_OK) : E_NOINTERFACE;
    }
    uint32_t AddRef() override { return ++refs; }
    uint32_t Release() override { return --refs; }
    uint32_t refs = 1;
    int queries = 0;
};

void CheckAggregation(const Module& m)
{
    for (int row = 0; row < 2; ++row) {
        const std::vector<const char*>& names = kClasses[row].names;
        IClassFactory* factory = m.Factory(row);
        Outer outer;
        for (size_t i = 1; i < names.size(); ++i)  // an outer object may ask for IID_IUnknown only
            m.Make(factory, &outer, names[i]).Refused(CLASS_E_NOAGGREGATION, true);
        IUnknown* inner = m.Make(factory, &outer, "IID_IUnknown").Got();
        for (size_t i = 1; i < names.size(); ++i) {  // the faces count on, and answer for, the outer object
            ExpectCount("inner object", inner, 1);
            const string face = string("inner ") + names[i] + " face";
            IUnknown* p = m.Query(inner, names[i], "inner ").Got();
            ExpectEq("outer count after querying the " + face + " is", outer.refs, 2u);
            ExpectCount(face, p, 2);
            const int queries = outer.queries;
            void* identity = nullptr;
            p->QueryInterface(IID_IUnknown, &identity);
            Expect(identity == &outer && outer.queries == queries + 1,
                   face + " does not delegate QueryInterface to the outer object");
            ExpectEq("outer Release returned", outer.Release(), 2u);
            ExpectEq(face + " Release returned", p->Release(), 1u);
        }
        ExpectEq("inner object's last Release returned", inner->Release(), 0u);
        ExpectEq("factory Release returned", factory->Release(), 0u);
    }
}

string Drain(int fd)
{
    string text;
    char buffer[512];
    for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR);)
        text.append(buffer, n > 0 ? size_t(n) : 0);
    close(fd);
    return text;
}

// The lock count moves but is never consulted; registering prints its trace.
void CheckEntryPoints(const Module& m)
{
    const auto canUnloadNow = m.Sym<DllEntryFunction>("DllCanUnloadNow");
    ExpectHr("DllCanUnloadNow", canUnloadNow(), S_OK);
    auto* locks = m.Sym<volatile int32_t*>("_ZN8CFactory14s_cServerLocksE");
    IClassFactory* factory = m.Factory(0);
    const int32_t before = *locks;
    for (int lock : {1, 0}) {
        const string call = "LockServer(" + to_string(lock) + ")";
        ExpectHr(call, factory->LockServer(lock), S_OK);
        ExpectEq("s_cServerLocks after " + call + " is", int32_t(*locks), before + lock);
        ExpectHr("DllCanUnloadNow after " + call, canUnloadNow(), S_OK);
    }
    ExpectEq("factory Release returned", factory->Release(), 0u);
    int fds[2];
    Expect(pipe(fds) == 0 && dup2(fds[1], STDOUT_FILENO) >= 0, "cannot capture standard output");
    close(fds[1]);
    ExpectHr("DllRegisterServer", m.Sym<DllEntryFunction>("DllRegisterServer")(), S_OK);
    std::fflush(stdout);
    close(STDOUT_FILENO);
    const string trace = Drain(fds[0]);
    Expect(trace == "222222222222222", "DllRegisterServer printed \"" + trace + "\", expected fifteen 2s");
    ExpectHr("DllUnregisterServer", m.Sym<DllEntryFunction>("DllUnregisterServer")(), S_OK);
}

// Counts the track's level-80 reports instead of letting them reach standard error.
struct CountingLogger final : IQMXLogger {
    bool IsLevelEnabled(int) override { return true; }
    void WriteLog(int level, const wchar_t*, ...) override { reports += level == 80 ? 1 : 0; }
    int reports = 0;
};

constexpr double KeyFrameParam::*kFields[] = {&KeyFrameParam::dPosition, &KeyFrameParam::dAngle,
                                              &KeyFrameParam::dPositionX, &KeyFrameParam::dPositionY,
                                              &KeyFrameParam::dScaleX,    &KeyFrameParam::dScaleY,
                                              &KeyFrameParam::dOpacity};
const char* const kFieldNames[] = {"dPosition", "dAngle",  "dPositionX", "dPositionY",
                                   "dScaleX",   "dScaleY", "dOpacity"};

// Added in this order they get indexes 0, 1, 0; values beyond -100..100 pass unclamped.
const KeyFrameParam kKeys[] = {
    {2, 90, -400, 30, 2, 0.5, 1}, {4, 180, 250, -60, 1, 1.5, 0.25}, {0, 0, 100, 0, 1, 1, 0}};
const std::vector<KeyFrameParam> kSorted = {kKeys[2], kKeys[0], kKeys[1]};

void ExpectKey(const string& what, const KeyFrameParam& got, const KeyFrameParam& want)
{
    for (size_t f = 0; f < std::size(kFields); ++f)
        ExpectEq(what + ": " + kFieldNames[f] + " is", got.*kFields[f], want.*kFields[f]);
}

// The track holds exactly `want`.
void ExpectKeys(IQMXKeyFrame* track, const std::vector<KeyFrameParam>& want, const string& when)
{
    ExpectEq("GetKeyFrameCount " + when + " returned", track->GetKeyFrameCount(), int(want.size()));
    for (int i = 0; i < int(want.size()); ++i) {
        KeyFrameParam key{};
        Expect(track->GetKeyFrame(i, key), "GetKeyFrame(" + to_string(i) + ") " + when + " returned false");
        ExpectKey("key " + to_string(i) + " " + when, key, want[size_t(i)]);
    }
}

struct Track {
    IQMXKeyFrame* keys;
    IQMXStorage* storage;

    // A new track, empty or holding kKeys.
    Track(const Module& m, bool filled) : keys(m.Create<IQMXKeyFrame>(0, "IID_IQMXKeyFrame"))
    {
        storage = m.Query(keys, "IID_IQMXStorage", "track ").Got<IQMXStorage>();
        Expect(static_cast<void*>(storage) != keys, "IID_IQMXKeyFrame and IID_IQMXStorage are one pointer");
        ExpectCount("track", keys, 2);
        for (size_t i = 0; filled && i < std::size(kKeys); ++i) {
            KeyFrameParam key = kKeys[i];
            int index = -2;
            Expect(keys->AddKeyFrame(key, index), "AddKeyFrame returned false");
            ExpectEq("AddKeyFrame at " + Number(key.dPosition) + " s gave index", index, i == 1 ? 1 : 0);
        }
        ExpectKeys(keys, filled ? kSorted : std::vector<KeyFrameParam>(), "after adding");
    }
    void Release() const
    {
        ExpectEq("storage Release returned", storage->Release(), 1u);
        ExpectEq("track's last Release returned", keys->Release(), 0u);
    }
};

void CheckTrackSession(const Module& m)
{
    CountingLogger logger;
    QMXSetDefaultLogger(&logger);
    KeyFrameParam key{};
    const Track empty(m, false);
    IQMXKeyFrame* t = empty.keys;
    Expect(!t->HasKeyFrame(0) && !t->GetKeyFrame(0.5, key) && !t->GetKeyFrame(0, key), "new track has keys");
    ExpectEq("level-80 reports after GetKeyFrame(0) on a new track:", logger.reports, 1);
    empty.Release();
    const Track track(m, true);
    t = track.keys;
    for (int i = 0; i < 2; ++i) {  // linear keys: halfway between two keys lies their midpoint
        KeyFrameParam half{};
        for (double KeyFrameParam::*field : kFields)
            half.*field = (kSorted[i].*field + kSorted[i + 1].*field) / 2;
        const string at = Number(half.dPosition);
        Expect(t->GetKeyFrame(half.dPosition, key), "GetKeyFrame(" + at + ") returned false");
        ExpectKey("the sample at " + at + " s", key, half);
        for (int p = 0; p < 6; ++p) {
            ExpectEq("GetKeyFrameValue(" + to_string(p) + ", " + at + ") returned",
                     t->GetKeyFrameValue(p, half.dPosition).Get<double>(), half.*kProperties[p].field);
        }
    }
    const struct { double at; int index; bool inRange; } probes[] = {
        {0, 0, true}, {1, -1, true}, {2, 1, true}, {4, 2, true}, {-0.5, -1, false}, {4.5, -1, false}};
    for (const auto& p : probes) {
        ExpectEq("GetKeyFrameIndex(" + Number(p.at) + ") returned", t->GetKeyFrameIndex(p.at), p.index);
        ExpectEq("InKeyFrameRange(" + Number(p.at) + ") returned", t->InKeyFrameRange(p.at), p.inRange);
    }
    int frame = -1, index = -1;
    double position = -1;
    t->CaculateKeyFrameIndex(2, 30, frame);
    t->CaculateKeyFramePosition(45, 30, position);
    ExpectEq("CaculateKeyFrameIndex(2, 30) gave frame", frame, 120);
    ExpectEq("CaculateKeyFramePosition(45, 30) gave", position, 1.5);
    Expect(t->GetKeyFrameIndex(60, 30, index) && index == 1, "GetKeyFrameIndex(frame 60) did not find key 1");
    // Set, move and delete keep the keys in time order: 0 2 4 -> 0 4 5 -> 4 5 6 -> 4 6.
    KeyFrameParam changed = {5, -30, 1, 2, 3, 4, 5}, moved = kKeys[2];
    moved.dPosition = 6;
    Expect(t->SetKeyFrame(1, changed) && t->GetKeyFrameIndex(5) == 2, "key 1 set to 5 s is not key 2");
    Expect(t->ChangeKeyFramePosition(0, 6) && t->GetKeyFrameIndex(6) == 2, "key 0 moved to 6 s is not key 2");
    Expect(t->DeleteKeyFrame(1), "DeleteKeyFrame(1) returned false");
    logger.reports = 0;
    Expect(!t->SetKeyFrame(2, changed) && !t->DeleteKeyFrame(-1) && !t->ChangeKeyFramePosition(2, 0) &&
               !t->GetKeyFrame(2, key),
           "an edit of key 2 or -1 of 2 keys succeeded");
    ExpectEq("level-80 reports for four bad indexes:", logger.reports, 4);
    ExpectKeys(t, {kKeys[1], moved}, "after the edits");
    t->CleanAllKeyFrame();
    ExpectKeys(t, {}, "after CleanAllKeyFrame");
    track.Release();
}

// Written into a bag and read into a new track, every key comes back exactly;
// each curve is one segment and is saved again as the same text.
void CheckTrackPersistence(const Module& m)
{
    const Track saved(m, true), loaded(m, false);
    KeyFrameParam odd = {6, 1.0 / 3, 0.1, -2.0 / 3, 1e-300, 1.0 / 7, 0.3};  // texts need all 17 digits
    std::vector<KeyFrameParam> keys = kSorted;
    keys.push_back(odd);
    Expect(saved.keys->AddKeyFrame(odd), "AddKeyFrame returned false");
    IQMXProperties* bags[2] = {QMXCreateMemoryProperties(), QMXCreateMemoryProperties()};
    ExpectHr("WriteTo", saved.storage->WriteTo(bags[0]), S_OK);
    ExpectHr("ReadFrom", loaded.storage->ReadFrom(bags[0]), S_OK);
    ExpectHr("WriteTo of the track read back", loaded.storage->WriteTo(bags[1]), S_OK);
    ExpectKeys(loaded.keys, keys, "read back");
    for (const auto& property : kProperties) {
        const string name = Narrow(property.bagName);
        std::wstring texts[2];
        for (int b = 0; b < 2; ++b) {
            int segments = 0;
            CQMXValue text;
            ExpectHr("GetInt(" + name + ")", bags[b]->GetInt(property.bagName, &segments), S_OK);
            ExpectEq("segment count of " + name + " is", segments, 1);
            ExpectHr("GetProperty(" + name + "Segment_0)",
                     bags[b]->GetProperty((std::wstring(property.bagName) + L"Segment_0").c_str(), &text), S_OK);
            texts[b] = text.m_strValue;
        }
        Expect(!texts[0].empty() && texts[0] == texts[1], name + " is saved differently after ReadFrom");
    }
    for (IQMXProperties* bag : bags)  // tracks keep no reference to a bag
        ExpectEq("bag's last Release returned", bag->Release(), 0u);
    saved.Release();
    loaded.Release();
}

// Linear keys sample exactly, clamped on request; a curve read back from the
// text of another samples and serializes the same.
void CheckCurve(const Module& m)
{
    core::IKeyFrame* curves[2] = {m.Create<core::IKeyFrame>(1, "IID_IQMXKeyFrameKV"),
                                  m.Create<core::IKeyFrame>(1, "IID_IQMXKeyFrameKV")};
    ExpectCount("curve", curves[0], 1);
    ExpectEq("a new curve's GetValue(1) returned", curves[0]->GetValue(1, false).Get<double>(), 0.0);
    const struct { double time, value; int index; } points[] = {
        {2, 10, 0}, {0, -4, 0}, {4, 250, 2}, {6, 1.0 / 3, 3}};  // the last needs all 17 digits in text
    for (const auto& p : points) {
        ExpectEq("AddPoint(" + Number(p.time) + ") returned",
                 curves[0]->AddPoint(p.time, core::ValAny(p.value), core::eKeyframeTypeLinear), p.index);
    }
    const string text = curves[0]->Serialize();
    ExpectHr("Desialize", curves[1]->Desialize(text.c_str()), S_OK);
    const struct { double time; bool clamp; double value; } samples[] = {
        {0, false, -4}, {1, false, 3}, {2, false, 10}, {3, false, 130}, {3, true, 100}, {4, false, 250}};
    for (int c = 0; c < 2; ++c) {
        const string which = c == 0 ? "" : " after Desialize";
        ExpectEq("GetKeyFramesCount" + which + " returned", curves[c]->GetKeyFramesCount(), 4);
        ExpectEq("GetPointValue(3)" + which + " returned", curves[c]->GetPointValue(3).Get<double>(), 1. / 3);
        for (const auto& s : samples) {
            ExpectEq("GetValue(" + Number(s.time) + ", " + Text(s.clamp) + ")" + which + " returned",
                     curves[c]->GetValue(s.time, s.clamp).Get<double>(), s.value);
        }
    }
    Expect(curves[1]->Serialize() == text, "Serialize after Desialize gave another text");
    for (core::IKeyFrame* curve : curves)
        ExpectEq("curve's last Release returned", curve->Release(), 0u);
}

using CheckFunction = void (*)(const Module&);
const struct {
    const char* name;
    CheckFunction run;
} kChecks[] = {
    {"load", CheckLoad},                {"exported symbols", CheckExports},
    {"host symbols", CheckHostSymbols}, {"identifier values", CheckIdentifiers},
    {"class table", CheckClassTable},   {"class factory", CheckClassFactory},
    {"interfaces", CheckInterfaces},    {"aggregation", CheckAggregation},
    {"entry points", CheckEntryPoints}, {"track session", CheckTrackSession},
    {"track persistence", CheckTrackPersistence}, {"curve component", CheckCurve},
};

constexpr unsigned kSecondsPerCheck = 20;

// Runs `check` in a child process: "" when it passed, else why not. The
// child reports "P", or "F" and the message, through a pipe.
string RunInChild(const Module& module, CheckFunction check)
{
    int fds[2];
    if (pipe(fds) != 0)
        return "cannot create a pipe";
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);  // the module's own output stays out of the report
        alarm(kSecondsPerCheck);
        string report = "P";
        try {
            check(module);
        } catch (const Failure& failure) {
            report = "F" + failure.message;
        } catch (const std::exception& e) {
            report = string("Fthrew ") + e.what();
        } catch (...) {
            report = "Fthrew an unknown exception";
        }
        report.resize(std::min<size_t>(report.size(), PIPE_BUF));  // written whole, at once
        (void)!write(fds[1], report.data(), report.size());
        _exit(0);  // no exit handlers: whatever the check left behind ends with the child
    }
    close(fds[1]);
    string report = Drain(fds[0]);
    int status = 0;
    while (pid > 0 && waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (pid < 0)
        return "cannot fork";
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
        return "timed out after " + to_string(kSecondsPerCheck) + " s";
    if (WIFSIGNALED(status))
        return "crashed (signal " + to_string(WTERMSIG(status)) + ")";
    if (report.empty())
        return "ended without a result (exit status " + to_string(WEXITSTATUS(status)) + ")";
    std::replace(report.begin(), report.end(), '\n', ' ');
    return report == "P" ? "" : report.size() > 1 ? report.substr(1) : "failed";
}

}  // namespace

int CommandValidate(const std::string& path)
{
    // A bare file name means the file here, not a search of the library path.
    Module module = {ModuleHost::LoadablePath(path), nullptr};
    int failed = 0;
    for (const auto& check : kChecks) {
        string problem = RunInChild(module, check.run);
        // Loaded in a child first: a module that faults while loading fails "load" only.
        if (check.run == CheckLoad && problem.empty()) {
            module.handle = QMXLoadModule(module.path.c_str());
            problem = module.handle != nullptr ? "" : QMXLastModuleError();
        }
        std::printf(problem.empty() ? "PASS %s\n" : "FAIL %s: %s\n", check.name, problem.c_str());
        std::fflush(stdout);
        failed += problem.empty() ? 0 : 1;
        if (module.handle == nullptr)  // nothing else can be checked
            break;
    }
    return failed;
}

}  // namespace qmxkf
