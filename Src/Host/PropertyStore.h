// The entry store behind the host's property bags, the bag face both bags share, and the registry that
// tells the runtime's bags from others.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "IQMXProperties.h"
#include "QMXCommon.h"

namespace qmxhost {

// Named integers and wide strings, kept exactly; every operation takes the lock.
class PropertyStore {
public:
    struct Entry {
        bool isInt;
        int number;
        std::wstring text;
        bool operator==(const Entry& other) const
        {
            return isInt == other.isInt && number == other.number && text == other.text;
        }
    };
    using Entries = std::map<std::wstring, Entry>;

    PropertyStore() = default;
    explicit PropertyStore(Entries entries) : m_entries(std::move(entries)) {}

    HRESULT Get(const wchar_t* name, CQMXValue* value) const
    {
        if (name == nullptr || value == nullptr)
            return E_POINTER;
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_entries.find(name);
        if (it == m_entries.end())
            return E_FAIL;
        if (it->second.isInt) {
            value->m_strType = L"int";
            value->m_strValue = std::to_wstring(it->second.number);
        } else {
            value->m_strType = L"string";
            value->m_strValue = it->second.text;
        }
        return S_OK;
    }
    HRESULT SetInt(const wchar_t* name, int value)
    {
        if (name == nullptr)
            return E_POINTER;
        std::lock_guard<std::mutex> lock(m_mutex);
        m_entries[name] = Entry{true, value, std::wstring()};
        return S_OK;
    }
    // E_FAIL for a missing name and for a name that holds a string.
    HRESULT GetInt(const wchar_t* name, int* value) const
    {
        if (name == nullptr || value == nullptr)
            return E_POINTER;
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_entries.find(name);
        if (it == m_entries.end() || !it->second.isInt)
            return E_FAIL;
        *value = it->second.number;
        return S_OK;
    }
    HRESULT SetString(const wchar_t* name, const wchar_t* value)
    {
        if (name == nullptr || value == nullptr)
            return E_POINTER;
        std::lock_guard<std::mutex> lock(m_mutex);
        m_entries[name] = Entry{false, 0, value};
        return S_OK;
    }
    HRESULT Remove(const wchar_t* name)
    {
        if (name == nullptr)
            return E_POINTER;
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_entries.erase(name) != 0 ? S_OK : E_FAIL;
    }
    // A consistent copy of every entry, for writing out.
    Entries Snapshot() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_entries;
    }

private:
    mutable std::mutex m_mutex;
    Entries m_entries;
};

// The bags of this runtime alive in the process, each with its kind and store, so that the runtime's
// functions can tell its own bags from bags of other kinds without ever calling into a foreign one.
class LiveBags {
public:
    struct Record {
        const void* kind;
        PropertyStore* store;
    };
    static void Add(const IQMXProperties* bag, Record what)
    {
        std::lock_guard<std::mutex> lock(Live().mutex);
        Live().bags.emplace(bag, what);
    }
    static void Remove(const IQMXProperties* bag)
    {
        std::lock_guard<std::mutex> lock(Live().mutex);
        Live().bags.erase(bag);
    }
    // The kind and store of `bag`, or a null store for a bag of another kind.
    static Record Find(const IQMXProperties* bag)
    {
        std::lock_guard<std::mutex> lock(Live().mutex);
        const auto it = Live().bags.find(bag);
        return it != Live().bags.end() ? it->second : Record{nullptr, nullptr};
    }

private:
    struct Registry {
        std::mutex mutex;
        std::map<const IQMXProperties*, Record> bags;
    };
    static Registry& Live()
    {
        static Registry* live = new Registry;  // never destroyed: bags may outlive static destruction
        return *live;
    }
};

// IUnknown and the four bag operations over a PropertyStore. `Bag` is the final class; the last
// Release deletes it as a `Bag`, so the interface needs no virtual destructor. Every such bag is
// registered in LiveBags while it lives.
template <class Bag>
class StoredProperties : public IQMXProperties {
public:
    // The bag of kind `Bag` behind `bag`, or null for a bag of another kind.
    static Bag* From(IQMXProperties* bag)
    {
        return LiveBags::Find(bag).kind == Kind() ? static_cast<Bag*>(bag) : nullptr;
    }

    HRESULT QueryInterface(const _GUID& iid, void** ppv) override
    {
        if (ppv == nullptr)
            return E_POINTER;
        if (!IsEqualGUID(iid, IID_IUnknown)) {
            *ppv = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        *ppv = static_cast<IUnknown*>(this);
        return S_OK;
    }
    uint32_t AddRef() override { return static_cast<uint32_t>(InterlockedIncrement(&m_cRefCount)); }
    uint32_t Release() override
    {
        const int32_t count = InterlockedDecrement(&m_cRefCount);
        if (count == 0)
            delete static_cast<Bag*>(this);
        return static_cast<uint32_t>(count);
    }

    HRESULT GetProperty(const wchar_t* name, CQMXValue* value) override { return m_store.Get(name, value); }
    HRESULT SetInt(const wchar_t* name, int value) override { return m_store.SetInt(name, value); }
    HRESULT GetInt(const wchar_t* name, int* value) override { return m_store.GetInt(name, value); }
    HRESULT SetString(const wchar_t* name, const wchar_t* value) override
    {
        return m_store.SetString(name, value);
    }

protected:
    StoredProperties() { LiveBags::Add(this, {Kind(), &m_store}); }
    explicit StoredProperties(PropertyStore::Entries entries) : m_store(std::move(entries))
    {
        LiveBags::Add(this, {Kind(), &m_store});
    }
    ~StoredProperties() { LiveBags::Remove(this); }

    PropertyStore m_store;

private:
    static const void* Kind()  // one address per kind of bag
    {
        static const char kind = 0;
        return &kind;
    }

    volatile int32_t m_cRefCount = 1;
};

}  // namespace qmxhost
