/// @file
/// The binary contract shared by the module and every host: identifiers,
/// result codes and the two root interfaces.
#pragma once

#include <cstdint>
#include <cstring>

/// 16-byte class or interface identifier, multi-byte fields little-endian.
struct _GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
};
static_assert(sizeof(_GUID) == 16, "_GUID is 16 bytes");

typedef int32_t HRESULT;

/// Result codes with the values of the host's COM emulation.
///@{
constexpr HRESULT S_OK = 0;
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80000004u);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80000005u);
constexpr HRESULT CLASS_E_NOAGGREGATION = static_cast<HRESULT>(0x80040110u);
constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = static_cast<HRESULT>(0x80040111u);
/// Unspecified failure; the host runtime's answer for, e.g., a missing property.
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
///@}

inline bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
inline bool FAILED(HRESULT hr) { return hr < 0; }

/// Identifiers are equal when all 16 bytes are.
///@{
inline bool IsEqualGUID(const _GUID& a, const _GUID& b) { return std::memcmp(&a, &b, sizeof(_GUID)) == 0; }
inline bool operator==(const _GUID& a, const _GUID& b) { return IsEqualGUID(a, b); }
inline bool operator!=(const _GUID& a, const _GUID& b) { return !IsEqualGUID(a, b); }
///@}

/// Every reference-returning operation returns one reference that the caller owns.
class IUnknown {
public:
    virtual HRESULT QueryInterface(const _GUID& iid, void** ppv) = 0;  ///< slot 0
    virtual uint32_t AddRef() = 0;                                     ///< slot 1
    virtual uint32_t Release() = 0;                                    ///< slot 2
};

class IClassFactory : public IUnknown {
public:
    virtual HRESULT CreateInstance(IUnknown* pOuter, const _GUID& iid, void** ppv) = 0;  ///< slot 3
    virtual HRESULT LockServer(int fLock) = 0;                                         ///< slot 4
};
