// The standard identifiers and the atomic counts the object model relies on.
#include "QMXCommon.h"
#include "QMXRuntime.h"
#include "qmx_version.h"

const _GUID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const _GUID IID_IClassFactory = {0x00000001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

namespace {

QMXReferenceCounts g_counts;  // updated atomically

void Count(int64_t& total, int64_t& edge, bool atEdge)
{
    __atomic_add_fetch(&total, 1, __ATOMIC_RELAXED);
    if (atEdge)
        __atomic_add_fetch(&edge, 1, __ATOMIC_RELAXED);
}

}  // namespace

extern "C" int32_t InterlockedIncrement(volatile int32_t* p)
{
    const int32_t value = __atomic_add_fetch(p, 1, __ATOMIC_SEQ_CST);
    Count(g_counts.increments, g_counts.firstReferences, value == 1);
    return value;
}

extern "C" int32_t InterlockedDecrement(volatile int32_t* p)
{
    const int32_t value = __atomic_sub_fetch(p, 1, __ATOMIC_SEQ_CST);
    Count(g_counts.decrements, g_counts.lastReleases, value == 0);
    return value;
}

extern "C" void QMXGetReferenceCounts(QMXReferenceCounts* counts)
{
    counts->increments = __atomic_load_n(&g_counts.increments, __ATOMIC_SEQ_CST);
    counts->decrements = __atomic_load_n(&g_counts.decrements, __ATOMIC_SEQ_CST);
    counts->firstReferences = __atomic_load_n(&g_counts.firstReferences, __ATOMIC_SEQ_CST);
    counts->lastReleases = __atomic_load_n(&g_counts.lastReleases, __ATOMIC_SEQ_CST);
}

extern "C" const char* QMXRuntimeVersion()
{
    return QMX_VERSION;
}
