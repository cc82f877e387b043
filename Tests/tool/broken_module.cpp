// A module that exports the keyframe module's entry points and identifiers
// but answers wrongly in planted ways; `qmxkf validate` must fail each of
// them and survive the one that aborts. Every fault is marked "Fault:".
#include <cstdlib>

#include "IQMXKeyFrame.h"
#include "QMXCommon.h"
#include "QMXKeyFrameGuids.h"
#include "QMXModule.h"
#include "qmx_export.h"

const _GUID CLSID_QMXKeyFrame = {0x5AE1FA35, 0x448E, 0x42E6, {0x9C, 0x75, 0xBC, 0x1E, 0x8D, 0xBF, 0x89, 0x42}};
const _GUID IID_IQMXKeyFrame = {0x17023CB6, 0x6191, 0x4B63, {0x8C, 0x9B, 0xEC, 0x29, 0x9C, 0xF1, 0x60, 0x54}};
const _GUID CLSID_QMXKeyFrameKV = {0x7691319E, 0x2504, 0x4055, {0xB2, 0xB1, 0x5F, 0xD8, 0x4C, 0x87, 0x09, 0x58}};
const _GUID IID_IQMXKeyFrameKV = {0x50A70D70, 0xD2D5, 0x42E4, {0xBF, 0x3B, 0xE0, 0x73, 0x6D, 0xDC, 0xD4, 0x9E}};
// Fault: the last byte is 0x13, not 0x12.
const _GUID IID_IQMXStorage = {0xB58DC8D7, 0xB8EC, 0x4254, {0x81, 0x4F, 0xDF, 0x40, 0xF5, 0x72, 0xB3, 0x13}};

// Fault: a host symbol defined (and exported) by the module itself.
extern "C" int32_t InterlockedIncrement(volatile int32_t* p)
{
    return ++*p;
}

namespace {

// One object for both classes, with a storage face only.
class Object final : public IQMXStorage {
public:
    HRESULT QueryInterface(const _GUID& iid, void** ppv) override
    {
        // Fault: IID_IQMXKeyFrame is answered with the storage face.
        if (iid == IID_IUnknown || iid == IID_IQMXStorage || iid == IID_IQMXKeyFrame) {
            *ppv = static_cast<IQMXStorage*>(this);
            AddRef();
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    uint32_t AddRef() override { return ++m_refs; }
    uint32_t Release() override
    {
        const uint32_t left = --m_refs;
        if (left == 0)
            delete this;
        return left;
    }
    HRESULT WriteTo(IQMXProperties*) override { return S_OK; }
    HRESULT ReadFrom(IQMXProperties*) override { return S_OK; }

private:
    uint32_t m_refs = 1;
};

class Factory final : public IClassFactory {
public:
    HRESULT QueryInterface(const _GUID& iid, void** ppv) override
    {
        *ppv = iid == IID_IUnknown || iid == IID_IClassFactory ? this : nullptr;
        return *ppv != nullptr ? (AddRef(), S_OK) : E_NOINTERFACE;
    }
    // Fault: reports one reference more than it holds.
    uint32_t AddRef() override { return ++m_refs + 1; }
    uint32_t Release() override
    {
        const uint32_t left = --m_refs;
        if (left == 0)
            delete this;
        return left;
    }
    // Fault: an outer object is accepted with any interface id, then ignored.
    HRESULT CreateInstance(IUnknown*, const _GUID& iid, void** ppv) override
    {
        auto* object = new Object;
        const HRESULT hr = object->QueryInterface(iid, ppv);
        object->Release();
        return hr;
    }
    HRESULT LockServer(int) override { return S_OK; }

private:
    uint32_t m_refs = 1;
};

// Never called: the factory makes its objects itself.
scombase::CUnknown* CreateNothing(IUnknown*, int*) { return nullptr; }

}  // namespace

CFactoryTemplate g_Templates[] = {
    {L"Create KeyFrame object", &CLSID_QMXKeyFrame, CreateNothing},
    {L"Create KeyFrame Param", &CLSID_QMXKeyFrameKV, CreateNothing},
    {nullptr, nullptr, nullptr},
};
int g_cTemplates = 2;  // Fault: the terminating row is not counted.

extern "C" HRESULT DllGetClassObject(const _GUID&, const _GUID& iid, void** ppv)
{
    if (iid != IID_IUnknown && iid != IID_IClassFactory)
        return E_NOINTERFACE;
    *ppv = new Factory;
    return S_OK;
}

// Fault: stops the process instead of answering.
extern "C" HRESULT DllCanUnloadNow() { std::abort(); }
extern "C" HRESULT DllRegisterServer() { return S_OK; }
extern "C" HRESULT DllUnregisterServer() { return S_OK; }
