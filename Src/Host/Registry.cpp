// Object creation by class id. The runtime learns which classes a module
// serves from the module's g_Templates table, so it never asks a module's
// DllGetClassObject for a class id the module does not list.
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "QMXCommon.h"
#include "QMXRuntime.h"
#include "QMXModule.h"
#include "qmx_version_note.h"

namespace {

struct ServedClass {
    _GUID clsid;
    DllGetClassObjectFunction getClassObject;
};

// The entry points of one module, resolved through `handle`; empty when the
// object is not a component module.
struct ModuleTable {
    const CFactoryTemplate* rows = nullptr;
    const int* count = nullptr;
    DllGetClassObjectFunction getClassObject = nullptr;
};

// Both symbols must come from the same loaded object: a handle's lookup also
// searches the object's dependencies.
bool SameObject(const void* a, const void* b)
{
    Dl_info first{}, second{};
    return dladdr(a, &first) != 0 && dladdr(b, &second) != 0 && first.dli_fbase == second.dli_fbase;
}

ModuleTable ReadTable(void* handle)
{
    ModuleTable table;
    void* rows = dlsym(handle, "g_Templates");
    void* entry = dlsym(handle, "DllGetClassObject");
    if (rows == nullptr || entry == nullptr || !SameObject(rows, entry))
        return table;
    table.rows = static_cast<const CFactoryTemplate*>(rows);
    table.getClassObject = reinterpret_cast<DllGetClassObjectFunction>(entry);
    void* count = dlsym(handle, "g_cTemplates");
    if (count != nullptr && SameObject(rows, count))
        table.count = static_cast<const int*>(count);
    return table;
}

class Registry {
public:
    // The entry point serving `clsid`, looking through newly loaded objects
    // when it is not known yet; null when no module serves it.
    DllGetClassObjectFunction Find(const _GUID& clsid)
    {
        if (DllGetClassObjectFunction found = Lookup(clsid))
            return found;
        ScanLoadedObjects();
        return Lookup(clsid);
    }

    // Registers the module behind `handle`, which the registry then keeps
    // open. False (and the handle closed) when it is no component module.
    bool Adopt(void* handle)
    {
        const ModuleTable table = ReadTable(handle);
        if (table.rows == nullptr) {
            dlclose(handle);
            return false;
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const CFactoryTemplate* known : m_tables) {
            if (known == table.rows) {
                dlclose(handle);  // already registered through another handle
                return true;
            }
        }
        m_tables.push_back(table.rows);
        // Rows up to the first null class id; a module's count includes that
        // terminating row, and no more rows than it counts are read.
        const int limit = table.count != nullptr ? *table.count : 1 << 16;
        for (int i = 0; i < limit && table.rows[i].m_pClsid != nullptr; ++i)
            m_classes.push_back({*table.rows[i].m_pClsid, table.getClassObject});
        return true;
    }

private:
    DllGetClassObjectFunction Lookup(const _GUID& clsid)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const ServedClass& served : m_classes) {
            if (IsEqualGUID(served.clsid, clsid))
                return served.getClassObject;
        }
        return nullptr;
    }

    // Visits every object loaded into the process, the program included. The
    // loader's list is copied first: dlopen must not run inside its walk.
    void ScanLoadedObjects()
    {
        std::vector<std::string> names;
        dl_iterate_phdr(
            [](dl_phdr_info* info, size_t, void* data) {
                static_cast<std::vector<std::string>*>(data)->emplace_back(info->dlpi_name ? info->dlpi_name : "");
                return 0;
            },
            &names);
        for (const std::string& name : names) {
            void* handle = dlopen(name.empty() ? nullptr : name.c_str(), RTLD_LAZY | RTLD_NOLOAD);
            if (handle != nullptr)
                Adopt(handle);
        }
    }

    std::mutex m_mutex;
    std::vector<const CFactoryTemplate*> m_tables;
    std::vector<ServedClass> m_classes;
};

// Never destroyed: objects may be created while the process exits.
Registry& TheRegistry()
{
    static Registry* registry = new Registry;
    return *registry;
}

thread_local std::string t_lastModuleError;

// The folder of this runtime's own file, as the loader found it (through a
// RUNPATH such as $ORIGIN/../lib), without its dot-dot steps.
std::string RuntimeFolder()
{
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&QMXLoadModule), &self) == 0 || self.dli_fname == nullptr)
        return ".";
    const std::string file = self.dli_fname;
    const size_t slash = file.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
    std::unique_ptr<char, decltype(&std::free)> resolved(realpath(folder.c_str(), nullptr), &std::free);
    return resolved ? resolved.get() : folder;
}

// The keyframe module from the first place that has one: the folders of
// QMX_MODULE_PATH, the installation's plug-in folder beside this runtime,
// this runtime's own folder. Empty, with every place looked in
// t_lastModuleError, when none has it.
std::string FindKeyFrameModule()
{
    std::vector<std::pair<std::string, const char*>> places;  // folder, why it is searched
    if (const char* list = std::getenv("QMX_MODULE_PATH")) {
        const std::string folders = list;
        for (size_t start = 0; start <= folders.size();) {
            const size_t end = std::min(folders.find(':', start), folders.size());
            if (end > start)
                places.emplace_back(folders.substr(start, end - start), "QMX_MODULE_PATH");
            start = end + 1;
        }
    }
    const std::string runtime = RuntimeFolder();
    places.emplace_back(runtime + "/" QMX_PLUGIN_SUBDIR, "plug-in folder");
    places.emplace_back(runtime, "beside the runtime");

    std::string looked;
    for (const auto& [folder, why] : places) {
        const std::string file = folder + "/" QMX_MODULE_FILE_NAME;
        if (access(file.c_str(), F_OK) == 0)
            return file;
        looked += (looked.empty() ? "" : ", ") + folder + " (" + why + ")";
    }
    t_lastModuleError = "no keyframe module (" QMX_MODULE_FILE_NAME ") found; looked in " + looked;
    return {};
}

// The release a loaded object records in its version note, or null.
const char* VersionNoteIn(const dl_phdr_info& object)
{
    for (int i = 0; i < object.dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = object.dlpi_phdr[i];
        if (segment.p_type != PT_NOTE)
            continue;
        const size_t align = segment.p_align > 4 ? segment.p_align : 4;
        const auto padded = [align](size_t n) { return (n + align - 1) / align * align; };
        const char* at = reinterpret_cast<const char*>(object.dlpi_addr + segment.p_vaddr);
        const char* end = at + segment.p_memsz;
        while (static_cast<size_t>(end - at) >= sizeof(ElfW(Nhdr))) {
            ElfW(Nhdr) note;
            std::memcpy(&note, at, sizeof note);
            const char* name = at + sizeof note;
            if (padded(note.n_namesz) > static_cast<size_t>(end - name))
                break;
            const char* desc = name + padded(note.n_namesz);
            if (padded(note.n_descsz) > static_cast<size_t>(end - desc))
                break;
            const bool ours = note.n_type == qmx::kVersionNoteType && note.n_namesz == sizeof qmx::kVersionNoteOwner &&
                              std::memcmp(name, qmx::kVersionNoteOwner, sizeof qmx::kVersionNoteOwner) == 0;
            if (ours && note.n_descsz > 0 && std::memchr(desc, 0, note.n_descsz) != nullptr)
                return desc;
            at = desc + padded(note.n_descsz);
        }
    }
    return nullptr;
}

}  // namespace

extern "C" void* QMXLoadModule(const char* path)
{
    std::string found;
    if (path == nullptr) {
        found = FindKeyFrameModule();
        if (found.empty())
            return nullptr;
        path = found.c_str();
    }
    void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* reason = dlerror();
        t_lastModuleError = reason != nullptr ? reason : std::string("cannot load ") + path;
        return nullptr;
    }
    // A second handle stays with the registry, so the caller may close its own.
    void* kept = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (kept == nullptr || !TheRegistry().Adopt(kept)) {
        t_lastModuleError = std::string(path) + ": not a component module (no g_Templates and DllGetClassObject)";
        dlclose(handle);
        return nullptr;
    }
    return handle;
}

extern "C" const char* QMXLastModuleError()
{
    return t_lastModuleError.c_str();
}

extern "C" const char* QMXModuleVersion(void* handle)
{
    link_map* module = nullptr;
    if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &module) != 0 || module == nullptr)
        return nullptr;
    struct Search {
        const link_map* module;
        const char* version;
    } search{module, nullptr};
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void* data) {
            auto* wanted = static_cast<Search*>(data);
            const char* name = info->dlpi_name != nullptr ? info->dlpi_name : "";
            if (info->dlpi_addr != wanted->module->l_addr || std::strcmp(name, wanted->module->l_name) != 0)
                return 0;
            wanted->version = VersionNoteIn(*info);
            return 1;
        },
        &search);
    return search.version;
}

namespace QMXCommon {

HRESULT GetInterface(const _GUID& clsid, IUnknown* pOuter, unsigned int /*flags*/, const _GUID& iid, void** ppv)
{
    if (ppv == nullptr)
        return E_POINTER;
    *ppv = nullptr;
    const DllGetClassObjectFunction getClassObject = TheRegistry().Find(clsid);
    if (getClassObject == nullptr)
        return CLASS_E_CLASSNOTAVAILABLE;
    IClassFactory* factory = nullptr;
    HRESULT hr = getClassObject(clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory));
    if (FAILED(hr))
        return hr;
    hr = factory->CreateInstance(pOuter, iid, ppv);
    factory->Release();
    return hr;
}

}  // namespace QMXCommon
