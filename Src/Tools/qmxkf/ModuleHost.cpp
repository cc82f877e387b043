#include "ModuleHost.h"

#include <dlfcn.h>
#include <link.h>

#include <utility>

#include "QMXCommon.h"
#include "QMXRuntime.h"
#include "ToolError.h"

namespace qmxkf {

namespace {

// The file the loader loaded behind `handle`, or `fallback`.
std::string LoadedFile(void* handle, const std::string& fallback)
{
    link_map* loaded = nullptr;
    if (handle != nullptr && dlinfo(handle, RTLD_DI_LINKMAP, &loaded) == 0 && loaded != nullptr &&
        loaded->l_name != nullptr && loaded->l_name[0] != '\0')
        return loaded->l_name;
    return fallback;
}

}  // namespace

ModuleHost::ModuleHost(const std::string& path) : ModuleHost(Load(path), path)
{
}

ModuleHost::ModuleHost(void* handle, std::string name) : ModuleHost(handle, std::move(name), Unchecked{})
{
    if (m_handle == nullptr)
        throw ToolError("cannot load module: " + std::string(QMXLastModuleError()));
    RequireEntryPoint();
}

ModuleHost::ModuleHost(void* handle, std::string name, Unchecked)
    : m_path(name.empty() ? LoadedFile(handle, name) : std::move(name)),
      m_handle(handle),
      m_getClassObject(reinterpret_cast<DllGetClassObjectFunction>(Symbol("DllGetClassObject")))
{
}

std::optional<ModuleHost> ModuleHost::Open(const std::string& path, std::string& error)
{
    void* handle = Load(path);
    if (handle == nullptr) {
        error = QMXLastModuleError();
        return std::nullopt;
    }
    return ModuleHost(handle, path, Unchecked{});
}

void* ModuleHost::Load(const std::string& path)
{
    if (path.empty())
        return QMXLoadModule(nullptr);
    return QMXLoadModule((path.find('/') == std::string::npos ? "./" + path : path).c_str());
}

std::string ModuleHost::Version() const
{
    const char* version = QMXModuleVersion(m_handle);
    return version != nullptr ? version : "";
}

void ModuleHost::RequireEntryPoint() const
{
    if (m_getClassObject == nullptr)
        throw ToolError(m_path + ": no DllGetClassObject");
}

void* ModuleHost::Symbol(const char* name) const
{
    return m_handle != nullptr ? dlsym(m_handle, name) : nullptr;
}

const _GUID& ModuleHost::Id(const char* name) const
{
    const void* id = Symbol(name);
    if (id == nullptr)
        throw ToolError(m_path + ": does not export " + name);
    return *static_cast<const _GUID*>(id);
}

void* ModuleHost::Create(const char* clsidName, const char* iidName) const
{
    const _GUID& clsid = Id(clsidName);
    RequireEntryPoint();
    QMXComPtr<IClassFactory> factory;
    HRESULT hr = m_getClassObject(clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory));
    if (FAILED(hr) || !factory)
        throw ToolError(m_path + ": no class factory for " + clsidName);
    void* object = nullptr;
    hr = factory->CreateInstance(nullptr, Id(iidName), &object);
    if (FAILED(hr) || object == nullptr)
        throw ToolError(m_path + ": cannot create " + clsidName);
    return object;
}

QMXComPtr<IQMXKeyFrame> ModuleHost::CreateTrack() const
{
    QMXComPtr<IQMXKeyFrame> track;
    track.Attach(static_cast<IQMXKeyFrame*>(Create("CLSID_QMXKeyFrame", "IID_IQMXKeyFrame")));
    return track;
}

QMXComPtr<core::IKeyFrame> ModuleHost::CreateCurve() const
{
    QMXComPtr<core::IKeyFrame> curve;
    curve.Attach(static_cast<core::IKeyFrame*>(Create("CLSID_QMXKeyFrameKV", "IID_IQMXKeyFrameKV")));
    return curve;
}

}  // namespace qmxkf
