// The table of served classes, the class factory and the module's entry points.
#include "QMXFactory.h"

#include <cstdio>
#include <cstring>

#include "QMXCommon.h"
#include "QMXKeyFrame.h"
#include "QMXKeyFrameGuids.h"
#include "keyframe_process.h"

CFactoryTemplate g_Templates[] = {
    {L"Create KeyFrame object", &CLSID_QMXKeyFrame, CreateKeyFrameInstance},
    {L"Create KeyFrame Param", &CLSID_QMXKeyFrameKV, CreateKeyFrameKVInstance},
    {nullptr, nullptr, nullptr},
};
int g_cTemplates = 3;

volatile int32_t CFactory::s_cServerLocks = 0;
void* CFactory::s_hModule = nullptr;

CFactory::CFactory(const CFactoryTemplate* pTemplate) : m_cRefCount(1), m_pTemplate(pTemplate) {}

HRESULT CFactory::QueryInterface(const _GUID& iid, void** ppv)
{
    if (ppv == nullptr)
        return E_POINTER;
    if (IsEqualGUID(iid, IID_IUnknown) || IsEqualGUID(iid, IID_IClassFactory)) {
        AddRef();
        *ppv = static_cast<IClassFactory*>(this);
        return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

uint32_t CFactory::AddRef()
{
    return static_cast<uint32_t>(InterlockedIncrement(&m_cRefCount));
}

uint32_t CFactory::Release()
{
    if (InterlockedDecrement(&m_cRefCount) != 0)
        return static_cast<uint32_t>(m_cRefCount);
    delete this;
    return 0;
}

HRESULT CFactory::LockServer(int fLock)
{
    if (fLock != 0)
        InterlockedIncrement(&s_cServerLocks);
    else
        InterlockedDecrement(&s_cServerLocks);
    return S_OK;
}

HRESULT CFactory::CreateInstance(IUnknown* pOuter, const _GUID& iid, void** ppv)
{
    if (pOuter != nullptr && !IsEqualGUID(iid, IID_IUnknown))
        return CLASS_E_NOAGGREGATION;
    int hr = 0;
    scombase::CUnknown* object = m_pTemplate->m_pfnCreate(pOuter, &hr);
    if (hr < 0)
        return hr;
    const HRESULT result = object->NonDelegatingQueryInterface(iid, ppv);
    object->NonDelegatingRelease();
    return result;
}

HRESULT CFactory::GetClassObject(const _GUID& clsid, const _GUID& iid, void** ppv)
{
    if (!IsEqualGUID(iid, IID_IUnknown) && !IsEqualGUID(iid, IID_IClassFactory))
        return E_NOINTERFACE;
    const int count = g_cTemplates;
    if (count <= 0)
        return CLASS_E_CLASSNOTAVAILABLE;
    // No test for the terminating row: an unserved class id reads through its
    // null class id. Hosts ask only for the ids the table lists.
    for (int i = 0; i < count; ++i) {
        if (std::memcmp(&clsid, g_Templates[i].m_pClsid, sizeof(_GUID)) == 0) {
            *ppv = static_cast<IClassFactory*>(new CFactory(&g_Templates[i]));
            return S_OK;
        }
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT CFactory::RegisterAll() { return S_OK; }
HRESULT CFactory::UnregisterAll() { return S_OK; }
HRESULT CFactory::CanUnloadNow() { return S_OK; }

extern "C" HRESULT DllGetClassObject(const _GUID& clsid, const _GUID& iid, void** ppv)
{
    return CFactory::GetClassObject(clsid, iid, ppv);
}

// The module may always be unloaded: neither locks nor live objects are counted.
extern "C" HRESULT DllCanUnloadNow()
{
    return S_OK;
}

// The fifteen-character trace is part of the module's observable behaviour.
extern "C" HRESULT DllRegisterServer()
{
    std::printf("222222222222222");
    return S_OK;
}

extern "C" HRESULT DllUnregisterServer()
{
    return S_OK;
}
