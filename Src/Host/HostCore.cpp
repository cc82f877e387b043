// The standard identifiers and the atomic counts the object model relies on.
#include "QMXCommon.h"

const _GUID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const _GUID IID_IClassFactory = {0x00000001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

extern "C" int32_t InterlockedIncrement(volatile int32_t* p)
{
    return __atomic_add_fetch(p, 1, __ATOMIC_SEQ_CST);
}

extern "C" int32_t InterlockedDecrement(volatile int32_t* p)
{
    return __atomic_sub_fetch(p, 1, __ATOMIC_SEQ_CST);
}
