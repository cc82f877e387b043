// The in-memory property bag: named integers and wide strings, kept exactly.
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
