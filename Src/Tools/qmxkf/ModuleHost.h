// The keyframe module as the tool drives it: loaded through the host
// runtime's load call, objects made by the factories of its
// DllGetClassObject, and nothing else but its exported identifiers.
#pragma once

#include <optional>
#include <string>

#include "IKeyFrame.h"
#include "IQMXKeyFrame.h"
#include "QMXComPtr.h"
#include "QMXModule.h"

namespace qmxkf {

class ModuleHost {
public:
    // Loads the module at `path`, or the one the host runtime finds when
    // `path` is empty; throws ToolError when it cannot.
    explicit ModuleHost(const std::string& path);
    // The module behind a handle this process already has (for example
    // dlopen(nullptr) in a program that links the module and exports it);
    // `name` names it in messages.
    ModuleHost(void* handle, std::string name);
    // Loads the module at `path` (or the one found, as above) without further
    // checks, as a conformance check needs it; empty, with the loader's
    // reason in `error`, when the load fails.
    static std::optional<ModuleHost> Open(const std::string& path, std::string& error);

    QMXComPtr<IQMXKeyFrame> CreateTrack() const;
    QMXComPtr<core::IKeyFrame> CreateCurve() const;
    // Another interface of the same object (one reference), or empty.
    template <typename T>
    QMXComPtr<T> Query(IUnknown* object, const _GUID& iid) const
    {
        QMXComPtr<T> result;
        object->QueryInterface(iid, reinterpret_cast<void**>(&result));
        return result;
    }

    const _GUID& Id(const char* name) const;
    // The module's symbol `name`, or null when it does not export it.
    void* Symbol(const char* name) const;
    void* Handle() const { return m_handle; }
    const std::string& Path() const { return m_path; }
    // The module's release from its version note, or empty when it has none.
    std::string Version() const;

private:
    // Loads `path` as the runtime's loader takes it: a bare file name means
    // the one in the current directory, not one found on the library search
    // path; an empty path means the runtime's search. Null when it fails.
    static void* Load(const std::string& path);
    struct Unchecked {};
    ModuleHost(void* handle, std::string name, Unchecked);
    void RequireEntryPoint() const;  // throws when the module lacks DllGetClassObject
    void* Create(const char* clsidName, const char* iidName) const;

    std::string m_path;
    void* m_handle;
    DllGetClassObjectFunction m_getClassObject;
};

}  // namespace qmxkf
