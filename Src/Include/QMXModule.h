/// @file
/// What a component module exports to its host: the table of served classes
/// and the four entry points. Hosts read `g_Templates` to learn which class ids
/// a module serves before they ask its DllGetClassObject for a factory.
#pragma once

#include "qmx_export.h"
#include "qmx_unknown.h"

namespace scombase {
class CUnknown;
}

/// Creates an object with one reference taken and stores its result code in
/// `*phr` (when `phr` is not null).
typedef scombase::CUnknown* (*CreateInstanceFunction)(IUnknown* pOuter, int* phr);

/// One served class. The table ends with a row whose class id pointer is null.
struct CFactoryTemplate {
    const wchar_t* m_pName;
    const _GUID* m_pClsid;
    CreateInstanceFunction m_pfnCreate;
};

/// The served classes and their count; the count includes the terminating row,
/// and the class-id walk of DllGetClassObject does not stop at that row: ask it
/// only for class ids listed in the table.
///@{
QMX_EXPORT extern CFactoryTemplate g_Templates[];
QMX_EXPORT extern int g_cTemplates;
///@}

extern "C" {
/// Hands out a class factory (IID_IUnknown or IID_IClassFactory) for `clsid`
/// with one reference that the caller owns.
QMX_EXPORT HRESULT DllGetClassObject(const _GUID& clsid, const _GUID& iid, void** ppv);
QMX_EXPORT HRESULT DllCanUnloadNow();
QMX_EXPORT HRESULT DllRegisterServer();
QMX_EXPORT HRESULT DllUnregisterServer();
}

/// Signatures of the entry points, for hosts that resolve them with dlsym.
///@{
typedef HRESULT (*DllGetClassObjectFunction)(const _GUID& clsid, const _GUID& iid, void** ppv);
typedef HRESULT (*DllEntryFunction)();
///@}
