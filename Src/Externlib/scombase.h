// The object model every served class derives from: reference counting,
// aggregation and interface hand-out.
#pragma once

#include "qmx_unknown.h"

namespace scombase {

// The private face of an object: an aggregated object answers its outer
// object through these, while its public IUnknown forwards to the owner.
class INonDelegatingUnknown {
public:
    virtual HRESULT NonDelegatingQueryInterface(const _GUID& iid, void** ppv) = 0;
    virtual uint32_t NonDelegatingAddRef() = 0;
    virtual uint32_t NonDelegatingRelease() = 0;
};

// Base of every served class; it must be the class's first base. A new object
// has count 0: its creation function takes the first reference.
class CUnknown : public INonDelegatingUnknown {
public:
    // The owner is `pOuter`, or the object's own non-delegating face when null.
    explicit CUnknown(IUnknown* pOuter);
    // As above; `phr` is accepted for the engine's signature and never written.
    CUnknown(IUnknown* pOuter, int* phr);
    virtual ~CUnknown();

    CUnknown(const CUnknown&) = delete;
    CUnknown& operator=(const CUnknown&) = delete;

    // Answers IID_IUnknown with the non-delegating face; anything else fails.
    HRESULT NonDelegatingQueryInterface(const _GUID& iid, void** ppv) override;
    // Returns a fresh read of the count, never less than 1.
    uint32_t NonDelegatingAddRef() override;
    // Destroys the object when the count reaches 0; returns the decremented count as it is.
    uint32_t NonDelegatingRelease() override;

    // The unknown that public QueryInterface/AddRef/Release forward to.
    IUnknown* GetOwner() const { return m_pOwner; }

protected:
    IUnknown* m_pOwner;
    volatile int32_t m_cRefCount;
};

// Stores `pUnk` in `*ppv` with one reference (E_POINTER for a null `ppv`).
HRESULT GetInterface(IUnknown* pUnk, void** ppv);

// Whether two interface pointers belong to one object (compared by IUnknown).
bool IsEqualObject(IUnknown* pFirst, IUnknown* pSecond);

}  // namespace scombase
