// qmxkf validate: checks a build of the keyframe module against the host
// contract, one check to a child process (CheckRunner), then drives one short
// track session through the tool's own loader to show the module works end
// to end. Behaviour beyond that is the test suite's.
#include "Validate.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

#include "CheckRunner.h"
#include "IQMXKeyFrame.h"
#include "ModuleContract.h"
#include "ModuleHost.h"
#include "Properties.h"
#include "QMXCommon.h"
#include "QMXModule.h"
#include "QMXPropertyBag.h"

namespace qmxkf {

namespace {

using std::string;
using std::to_string;

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

// The module's symbol `name`; a check fails when it is not exported.
template <typename T>
T Sym(const ModuleHost& m, const char* name)
{
    void* symbol = m.Symbol(name);
    Expect(symbol != nullptr, string("the module does not export ") + name);
    return reinterpret_cast<T>(symbol);
}
const _GUID& Id(const ModuleHost& m, const char* name) { return *Sym<const _GUID*>(m, name); }

// The class id of g_Templates row `row`: DllGetClassObject is never asked
// for an id the table does not list.
const _GUID& RowClass(const ModuleHost& m, int row)
{
    const auto* rows = Sym<const CFactoryTemplate*>(m, "g_Templates");
    const int count = *Sym<const int*>(m, "g_cTemplates");
    for (int i = 0; i <= row; ++i)
        Expect(i < count && rows[i].m_pClsid, "g_Templates has no row " + to_string(row));
    return *rows[row].m_pClsid;
}
Handout ClassObject(const ModuleHost& m, int row, const char* iid)
{
    Handout h = {string("DllGetClassObject(") + kContractClasses[row].clsid + ", " + iid + ")", 0,
                 &Handout::kUntouched};
    h.hr = Sym<DllGetClassObjectFunction>(m, "DllGetClassObject")(RowClass(m, row), Id(m, iid), &h.out);
    return h;
}
IClassFactory* Factory(const ModuleHost& m, int row)
{
    return ClassObject(m, row, "IID_IClassFactory").Got<IClassFactory>();
}
Handout Make(const ModuleHost& m, IClassFactory* factory, IUnknown* outer, const char* iid)
{
    Handout h = {string("CreateInstance(") + (outer ? "outer, " : "null, ") + iid + ")", 0, &Handout::kUntouched};
    h.hr = factory->CreateInstance(outer, Id(m, iid), &h.out);
    return h;
}
Handout Query(const ModuleHost& m, IUnknown* object, const char* iid, const string& on = "")
{
    Handout h = {on + "QueryInterface(" + iid + ")", 0, &Handout::kUntouched};
    h.hr = object->QueryInterface(Id(m, iid), &h.out);
    return h;
}

// The loaded object that contains `address`, or null.
const link_map* ObjectOf(const void* address)
{
    Dl_info info{};
    link_map* map = nullptr;
    const bool found = address && dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP);
    return found ? map : nullptr;
}

// The contract's exports are the module's own (`own`); the host's symbols
// resolve past the module, into the host runtime it links.
void CheckSymbols(const ModuleHost& m, const std::vector<const char*>& names, bool own)
{
    link_map* module = nullptr;
    dlinfo(m.Handle(), RTLD_DI_LINKMAP, &module);
    std::vector<string> wrong;
    for (const char* name : names) {
        const link_map* object = ObjectOf(m.Symbol(name));
        if (own ? object != module : object == module || object == nullptr)
            wrong.push_back(own ? string("does not export ") + name
                                : object ? string("defines the host's ") + name + " itself"
                                         : string("cannot reach the host's ") + name);
    }
    if (wrong.size() > 1)
        wrong[0] += " (and " + to_string(wrong.size() - 1) + " more)";
    Expect(wrong.empty(), wrong.empty() ? "" : wrong[0]);
}
void CheckExports(const ModuleHost& m) { CheckSymbols(m, kContractExports, true); }
void CheckHostSymbols(const ModuleHost& m) { CheckSymbols(m, kContractHostSymbols, false); }

void CheckIdentifiers(const ModuleHost& m)
{
    for (const auto& id : kContractIdentifiers) {
        Expect(IsEqualGUID(Id(m, id.name), id.value),
               string(id.name) + " is " + GuidText(Id(m, id.name)) + ", expected " + GuidText(id.value));
    }
}

void CheckClassTable(const ModuleHost& m)
{
    auto* count = Sym<volatile int*>(m, "g_cTemplates");
    ExpectEq("g_cTemplates is", int(*count), 3);
    auto* rows = Sym<CFactoryTemplate*>(m, "g_Templates");
    for (int i = 0; i < 2; ++i) {
        const CFactoryTemplate& row = rows[i];
        const ContractClass& c = kContractClasses[i];
        const string at = "g_Templates row " + to_string(i);
        Expect(row.m_pName && std::wcscmp(row.m_pName, c.title) == 0,
               at + " is not named " + Narrow(c.title));
        Expect(row.m_pClsid && IsEqualGUID(*row.m_pClsid, Id(m, c.clsid)), at + " does not hold " + c.clsid);
        const void* exported = m.Symbol(c.create);
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
void CheckClassFactory(const ModuleHost& m)
{
    for (int row = 0; row < 2; ++row) {
        ClassObject(m, row, kContractClasses[row].names[1]).Refused(E_NOINTERFACE, true);
        for (const char* iid : {"IID_IUnknown", "IID_IClassFactory"}) {
            auto* factory = ClassObject(m, row, iid).Got<IClassFactory>();
            ExpectCount("factory", factory, 1);
            for (const char* face : {"IID_IUnknown", "IID_IClassFactory"}) {
                Expect(Query(m, factory, face).Got() == factory,
                       string("factory QueryInterface(") + face + ") answered another pointer");
                ExpectCount("factory", factory, 2);
                ExpectEq("factory Release returned", factory->Release(), 1u);
            }
            Query(m, factory, kContractClasses[row].foreign, "factory ").Refused(E_NOINTERFACE);
            ExpectEq("factory's last Release returned", factory->Release(), 0u);
        }
    }
}

// Each interface makes a new object. One object answers each of its
// interfaces from each face with the same pointer, and refuses others.
void CheckInterfaces(const ModuleHost& m)
{
    for (int row = 0; row < 2; ++row) {
        const ContractClass& c = kContractClasses[row];
        IClassFactory* factory = Factory(m, row);
        std::vector<IUnknown*> faces;  // one object: faces[i] answers c.names[i]
        for (const char* iid : c.names) {
            faces.push_back(Make(m, factory, nullptr, iid).Got());
            const string made = string("new ") + iid + " object";
            ExpectCount(made, faces.back(), 1);
            if (faces.size() > 1)
                ExpectEq(made + "'s last Release returned", faces.back()->Release(), 0u);
        }
        for (size_t i = 1; i < faces.size(); ++i) {
            faces[i] = Query(m, faces[0], c.names[i]).Got();
            ExpectCount(string(c.names[i]) + " face", faces[i], uint32_t(i + 1));
            for (size_t j = 1; j < i; ++j)
                Expect(faces[i] != faces[j], string(c.names[j]) + " and " + c.names[i] + " are one pointer");
        }
        const auto refs = uint32_t(faces.size());
        for (size_t i = 0; i < faces.size(); ++i) {
            const string on = string("the ") + c.names[i] + " face's ";
            for (size_t j = 0; j < faces.size(); ++j) {
                const string call = on + "QueryInterface(" + c.names[j] + ")";
                IUnknown* face = Query(m, faces[i], c.names[j], on).Got();
                Expect(face == faces[j], call + " answered another pointer");
                ExpectEq(call + ", then Release returned", face->Release(), refs);
            }
            for (const char* wrong : {c.foreign, "IID_IClassFactory"})
                Query(m, faces[i], wrong, on).Refused(E_NOINTERFACE);
        }
        for (uint32_t i = 0; i < refs; ++i)
            ExpectEq(string(c.clsid) + " object Release returned", faces[i]->Release(), refs - 1 - i);
        Make(m, factory, nullptr, c.foreign).Refused(E_NOINTERFACE);
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

void CheckAggregation(const ModuleHost& m)
{
    for (int row = 0; row < 2; ++row) {
        const std::vector<const char*>& names = kContractClasses[row].names;
        IClassFactory* factory = Factory(m, row);
        Outer outer;
        for (size_t i = 1; i < names.size(); ++i)  // an outer object may ask for IID_IUnknown only
            Make(m, factory, &outer, names[i]).Refused(CLASS_E_NOAGGREGATION, true);
        IUnknown* inner = Make(m, factory, &outer, "IID_IUnknown").Got();
        for (size_t i = 1; i < names.size(); ++i) {  // the faces count on, and answer for, the outer object
            ExpectCount("inner object", inner, 1);
            const string face = string("inner ") + names[i] + " face";
            IUnknown* p = Query(m, inner, names[i], "inner ").Got();
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

// The lock count moves but is never consulted; registering prints its trace.
void CheckEntryPoints(const ModuleHost& m)
{
    const auto canUnloadNow = Sym<DllEntryFunction>(m, "DllCanUnloadNow");
    ExpectHr("DllCanUnloadNow", canUnloadNow(), S_OK);
    auto* locks = Sym<volatile int32_t*>(m, "_ZN8CFactory14s_cServerLocksE");
    IClassFactory* factory = Factory(m, 0);
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
    ExpectHr("DllRegisterServer", Sym<DllEntryFunction>(m, "DllRegisterServer")(), S_OK);
    std::fflush(stdout);
    close(STDOUT_FILENO);
    const string trace = ReadAll(fds[0]);
    Expect(trace == "222222222222222", "DllRegisterServer printed \"" + trace + "\", expected fifteen 2s");
    ExpectHr("DllUnregisterServer", Sym<DllEntryFunction>(m, "DllUnregisterServer")(), S_OK);
}

// One session as the tool's commands drive the module: keys added to a track,
// which is saved into a bag and read into a new track. That one gives a
// sample between two keys, and its last key exactly (values that need all
// seventeen digits in the bag's text).
void CheckTrackSession(const ModuleHost& m)
{
    QMXComPtr<IQMXKeyFrame> tracks[2] = {m.CreateTrack(), m.CreateTrack()};
    QMXComPtr<IQMXStorage> storage[2];
    for (int i = 0; i < 2; ++i) {
        storage[i] = m.Query<IQMXStorage>(tracks[i].Get(), Id(m, "IID_IQMXStorage"));
        // The session calls through both faces: they must be the track's own.
        Expect(storage[i] && static_cast<void*>(storage[i].Get()) != tracks[i].Get(),
               "the track has no IID_IQMXStorage face of its own");
    }
    KeyFrameParam keys[] = {
        {0, 0, -400, 0, 0.5, 0.5, 0}, {2, 90, 100, 60, 1.5, 1, 1}, {4, 1.0 / 3, 0.1, -2.0 / 3, 1e-300, 1.0 / 7, 0.3}};
    for (KeyFrameParam& key : keys)
        Expect(tracks[0]->AddKeyFrame(key), "AddKeyFrame at " + Number(key.dPosition) + " s returned false");
    QMXComPtr<IQMXProperties> bag;
    bag.Attach(QMXCreateMemoryProperties());
    ExpectHr("WriteTo", storage[0]->WriteTo(bag.Get()), S_OK);
    ExpectHr("ReadFrom", storage[1]->ReadFrom(bag.Get()), S_OK);
    ExpectEq("GetKeyFrameCount of the track read back returned", tracks[1]->GetKeyFrameCount(), 3);
    KeyFrameParam sample{}, last{};
    Expect(tracks[1]->GetKeyFrame(1.0, sample) && tracks[1]->GetKeyFrame(2, last),
           "GetKeyFrame of the track read back returned false");
    for (const Property& p : kProperties) {  // linear keys: halfway between two keys lies their midpoint
        ExpectEq(string(p.title) + " at 1 s is", sample.*p.field, (keys[0].*p.field + keys[1].*p.field) / 2);
        ExpectEq(string(p.title) + " of the last key read back is", last.*p.field, keys[2].*p.field);
    }
}

using CheckFunction = void (*)(const ModuleHost&);
const struct {
    const char* name;
    CheckFunction run;
} kChecks[] = {
    {"exported symbols", CheckExports}, {"host symbols", CheckHostSymbols},
    {"identifier values", CheckIdentifiers}, {"class table", CheckClassTable},
    {"class factory", CheckClassFactory}, {"interfaces", CheckInterfaces},
    {"aggregation", CheckAggregation}, {"entry points", CheckEntryPoints},
    {"track session", CheckTrackSession},
};

}  // namespace

int CommandValidate(const std::string& path)
{
    // Loaded in a child first: a module that faults while loading fails "load" only.
    string problem = RunInChild([&] {
        string error;
        Expect(ModuleHost::Open(path, error).has_value(), error);
    });
    std::optional<ModuleHost> module;
    if (problem.empty())
        module = ModuleHost::Open(path, problem);
    int failed = ReportCheck("load", problem);
    if (!module)  // nothing else can be checked
        return failed;
    // Which file was checked, and the release it records (not a check: the
    // contract does not require a version).
    const string version = module->Version();
    std::printf("module %s, version %s\n", module->Path().c_str(),
                version.empty() ? "unknown (no version note)" : version.c_str());
    for (const auto& check : kChecks)
        failed += ReportCheck(check.name, RunInChild([&] { check.run(*module); }));
    return failed;
}

}  // namespace qmxkf
