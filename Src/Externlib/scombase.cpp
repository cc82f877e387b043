// Reference counting and interface hand-out shared by the served classes.
#include "scombase.h"

#include "QMXCommon.h"

namespace scombase {

namespace {

// The non-delegating face has IUnknown's table layout, so it serves as the
// owner of an object that is not aggregated.
IUnknown* AsUnknown(INonDelegatingUnknown* face)
{
    return reinterpret_cast<IUnknown*>(face);
}

}  // namespace

CUnknown::CUnknown(IUnknown* pOuter)
    : m_pOwner(pOuter != nullptr ? pOuter : AsUnknown(static_cast<INonDelegatingUnknown*>(this))),
      m_cRefCount(0)
{
}

CUnknown::CUnknown(IUnknown* pOuter, int* /*phr*/) : CUnknown(pOuter) {}

CUnknown::~CUnknown() = default;

HRESULT CUnknown::NonDelegatingQueryInterface(const _GUID& iid, void** ppv)
{
    if (ppv == nullptr)
        return E_POINTER;
    if (IsEqualGUID(iid, IID_IUnknown)) {
        INonDelegatingUnknown* face = this;
        *ppv = face;
        face->NonDelegatingAddRef();
        return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

uint32_t CUnknown::NonDelegatingAddRef()
{
    InterlockedIncrement(&m_cRefCount);
    const int32_t count = __atomic_load_n(&m_cRefCount, __ATOMIC_SEQ_CST);
    return count > 1 ? static_cast<uint32_t>(count) : 1u;
}

uint32_t CUnknown::NonDelegatingRelease()
{
    const int32_t count = InterlockedDecrement(&m_cRefCount);
    if (count == 0)
        delete this;
    return static_cast<uint32_t>(count);
}

HRESULT GetInterface(IUnknown* pUnk, void** ppv)
{
    if (ppv == nullptr)
        return E_POINTER;
    *ppv = pUnk;
    pUnk->AddRef();
    return S_OK;
}

bool IsEqualObject(IUnknown* pFirst, IUnknown* pSecond)
{
    if (pFirst == pSecond)
        return true;
    IUnknown* first = nullptr;
    if (FAILED(pFirst->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&first))))
        return false;
    first->Release();
    IUnknown* second = nullptr;
    if (FAILED(pSecond->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&second))))
        return false;
    second->Release();
    return first == second;
}

}  // namespace scombase
