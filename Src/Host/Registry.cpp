// Object creation by class id. No module registers classes with the runtime
// yet, so every class id is unknown.
#include "QMXCommon.h"

namespace QMXCommon {

HRESULT GetInterface(const _GUID& /*clsid*/, IUnknown* /*pOuter*/, unsigned int /*flags*/,
                     const _GUID& /*iid*/, void** ppv)
{
    if (ppv != nullptr)
        *ppv = nullptr;
    return CLASS_E_CLASSNOTAVAILABLE;
}

}  // namespace QMXCommon
