/// @file
/// The host's property bag and the typed value it hands out. Shared by the
/// module and every host; the layouts and slot orders are binary contract.
#pragma once

#include <cwchar>
#include <cwctype>
#include <string>

#include "qmx_unknown.h"

/// A typed value in text form. A value of type "CQMXPtr<IUnknown>" owns one
/// reference to the interface whose address its text holds ("Interface:%p").
/// Assignment references only that exact spelling of the type, while
/// destruction releases any spelling that matches it ignoring case; callers
/// rely on this asymmetry. A text without a pointer is never referenced.
class CQMXValue {
public:
    CQMXValue() = default;
    /// Copies as assignment does, so a copy holds its own reference.
    CQMXValue(const CQMXValue& other) { *this = other; }
    virtual ~CQMXValue() { ReleaseUnknownInterface(); }  ///< slots 0, 1

    /// slot 2
    virtual CQMXValue& operator=(const CQMXValue& other)
    {
        if (&other == this)
            return *this;
        ReleaseUnknownInterface();
        m_strType = other.m_strType;
        m_strValue = other.m_strValue;
        if (m_strType == kUnknownType) {
            if (IUnknown* unknown = ParseUnknown())
                unknown->AddRef();
        }
        return *this;
    }
    /// Compares the texts only; the types are not compared.
    /// slot 3
    virtual bool operator==(const CQMXValue& other) const
    {
        return m_strValue == other.m_strValue;
    }

    /// Drops the reference an interface-typed value holds.
    void ReleaseUnknownInterface()
    {
        if (!IsUnknownTypeIgnoringCase())
            return;
        if (IUnknown* unknown = ParseUnknown())
            unknown->Release();
    }

    std::wstring m_strType;
    std::wstring m_strValue;

private:
    static constexpr const wchar_t* kUnknownType = L"CQMXPtr<IUnknown>";

    /// Allocates nothing: it runs in the destructor, which must not throw.
    bool IsUnknownTypeIgnoringCase() const
    {
        const size_t length = std::char_traits<wchar_t>::length(kUnknownType);
        if (m_strType.size() != length)
            return false;
        for (size_t i = 0; i < length; ++i) {
            const wint_t have = std::towlower(static_cast<wint_t>(m_strType[i]));
            if (have != std::towlower(static_cast<wint_t>(kUnknownType[i])))
                return false;
        }
        return true;
    }
    /// The interface pointer written in the text; null when the text holds none.
    IUnknown* ParseUnknown() const
    {
        void* pointer = nullptr;
        std::swscanf(m_strValue.c_str(), L"Interface:%p", &pointer);
        return static_cast<IUnknown*>(pointer);
    }
};

/// A store of named values. Operations after these four may follow in a host's table.
class IQMXProperties : public IUnknown {
public:
    /// Fills `value` with what is stored under `name`.
    virtual HRESULT GetProperty(const wchar_t* name, CQMXValue* value) = 0;  ///< slot 3
    virtual HRESULT SetInt(const wchar_t* name, int value) = 0;              ///< slot 4
    /// Negative when nothing readable as an integer is stored under `name`.
    virtual HRESULT GetInt(const wchar_t* name, int* value) = 0;             ///< slot 5
    virtual HRESULT SetString(const wchar_t* name, const wchar_t* value) = 0;  ///< slot 6
};
