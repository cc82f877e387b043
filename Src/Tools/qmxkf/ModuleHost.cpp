#include "ModuleHost.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <utility>

#include "QMXCommon.h"
#include "QMXRuntime.h"
#include "ToolError.h"

namespace qmxkf {

ModuleHost::ModuleHost(const std::string& path) : ModuleHost(QMXLoadModule(LoadablePath(path).c_str()), path)
{
}

ModuleHost::ModuleHost(void* handle, std::string name) : ModuleHost(handle, std::move(name), Unchecked{})
{
    if (m_handle == nullptr)
        throw ToolError("cannot load module: " + std::string(QMXLastModuleError()));
    RequireEntryPoint();
}

ModuleHost::ModuleHost(void* handle, std::string name, Unchecked)
    : m_path(std::move(name)),
      m_handle(handle),
      m_getClassObject(reinterpret_cast<DllGetClassObjectFunction>(Symbol("DllGetClassObject")))
{
}

std::optional<ModuleHost> ModuleHost::Open(const std::string& path, std::string& error)
{
    void* handle = QMXLoadModule(LoadablePath(path).c_str());
    if (handle == nullptr) {
        error = QMXLastModuleError();
        return std::nullopt;
    }
    return ModuleHost(handle, path, Unchecked{});
}

std::string ModuleHost::DefaultPath()
{
    char self[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0)
        return "libQMXKeyFrame.so";
    std::string dir(self, static_cast<size_t>(n));
    dir.erase(dir.find_last_of('/') + 1);
    return dir + "../lib/libQMXKeyFrame.so";
}

std::string ModuleHost::LoadablePath(const std::string& path)
{
    return path.find('/') == std::string::npos ? "./" + path : path;
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
