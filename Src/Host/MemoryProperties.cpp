// The in-memory property bag: named integers and wide strings, kept exactly.
#include <map>
#include <mutex>
#include <string>

#include "QMXCommon.h"
#include "QMXPropertyBag.h"

namespace {

class MemoryProperties final : public IQMXProperties {
public:
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
            delete this;
        return static_cast<uint32_t>(count);
    }

    HRESULT GetProperty(const wchar_t* name, CQMXValue* value) override
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
    HRESULT SetInt(const wchar_t* name, int value) override
    {
        if (name == nullptr)
            return E_POINTER;
        std::lock_guard<std::mutex> lock(m_mutex);
        m_entries[name] = Entry{true, value, std::wstring()};
        return S_OK;
    }
    HRESULT GetInt(const wchar_t* name, int* value) override
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
    HRESULT SetString(const wchar_t* name, const wchar_t* value) override
    {
        if (name == nullptr || value == nullptr)
            return E_POINTER;
        std::lock_guard<std::mutex> lock(m_mutex);
        m_entries[name] = Entry{false, 0, value};
        return S_OK;
    }

private:
    struct Entry {
        bool isInt;
        int number;
        std::wstring text;
    };

    ~MemoryProperties() = default;

    volatile int32_t m_cRefCount = 1;
    std::mutex m_mutex;
    std::map<std::wstring, Entry> m_entries;
};

}  // namespace

extern "C" IQMXProperties* QMXCreateMemoryProperties()
{
    return new MemoryProperties;
}
