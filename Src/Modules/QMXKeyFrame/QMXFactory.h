// The module's class factory: one factory object per DllGetClassObject call,
// creating objects of the table row it was made for.
#pragma once

#include <cstdint>

#include "QMXModule.h"
#include "qmx_export.h"
#include "qmx_unknown.h"

class CFactory final : public IClassFactory {
public:
    // Count 1: the caller of GetClassObject owns the first reference.
    explicit CFactory(const CFactoryTemplate* pTemplate);

    // Answers IID_IUnknown and IID_IClassFactory with the factory itself.
    HRESULT QueryInterface(const _GUID& iid, void** ppv) override;
    uint32_t AddRef() override;
    // Frees the factory when the count reaches 0.
    uint32_t Release() override;
    // Aggregation only through IID_IUnknown; drops the creation reference, so
    // an object that does not answer `iid` is destroyed at once.
    HRESULT CreateInstance(IUnknown* pOuter, const _GUID& iid, void** ppv) override;
    // Counts server locks; nothing reads the count.
    HRESULT LockServer(int fLock) override;

    // Walks g_Templates for `clsid` (unguarded: see QMXModule.h) and hands out
    // a new factory for the first matching row.
    static HRESULT GetClassObject(const _GUID& clsid, const _GUID& iid, void** ppv);
    static HRESULT RegisterAll();
    static HRESULT UnregisterAll();
    static HRESULT CanUnloadNow();

    QMX_EXPORT static volatile int32_t s_cServerLocks;
    QMX_EXPORT static void* s_hModule;  // kept for the engine's layout; never used

private:
    volatile int32_t m_cRefCount;
    const CFactoryTemplate* m_pTemplate;
};
