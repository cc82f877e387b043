// The in-memory property bag, and what every bag of this runtime answers.
#include "PropertyStore.h"
#include "QMXPropertyBag.h"

namespace {

class MemoryProperties final : public qmxhost::StoredProperties<MemoryProperties> {
    friend class qmxhost::StoredProperties<MemoryProperties>;  // the last Release deletes it
    ~MemoryProperties() = default;
};

}  // namespace

extern "C" IQMXProperties* QMXCreateMemoryProperties()
{
    return new MemoryProperties;
}

extern "C" HRESULT QMXRemoveProperty(IQMXProperties* bag, const wchar_t* name)
{
    qmxhost::PropertyStore* store = qmxhost::LiveBags::Find(bag).store;
    return store != nullptr && name != nullptr ? store->Remove(name) : E_POINTER;
}
