// Inline implementation of core::ValAny; included by val_any.h only.
#pragma once

#include <cstring>
#include <limits>
#include <type_traits>

#include "qmx_check.h"

namespace core {

inline ValAny::ValAny() noexcept : payload{}, typeTag(kEmpty) {}

inline ValAny::ValAny(bool value) noexcept : payload{}, typeTag(kBool)
{
    payload.bytes[0] = value ? 1 : 0;
}

inline ValAny::ValAny(int32_t value) noexcept : payload{}, typeTag(kInt32) { payload.i32 = value; }
inline ValAny::ValAny(uint32_t value) noexcept : payload{}, typeTag(kUInt32) { payload.u32 = value; }
inline ValAny::ValAny(int64_t value) noexcept : payload{}, typeTag(kInt64) { payload.i64 = value; }
inline ValAny::ValAny(uint64_t value) noexcept : payload{}, typeTag(kUInt64) { payload.u64 = value; }
inline ValAny::ValAny(float value) noexcept : payload{}, typeTag(kFloat) { payload.f = value; }
inline ValAny::ValAny(double value) noexcept : payload{}, typeTag(kDouble) { payload.d = value; }
inline ValAny::ValAny(const char* text) noexcept : payload{}, typeTag(kText) { payload.text = text; }

inline ValAny::ValAny(ValAnyObject* object, uint32_t tag) : payload{}, typeTag(kEmpty)
{
    QMX_CHECK(tag >= kObject);
    payload.pobj = object;
    typeTag = tag;
}

inline ValAny::ValAny(const ValAny& other) : payload{}, typeTag(kEmpty) { Copy(other); }

inline ValAny& ValAny::operator=(const ValAny& other)
{
    Copy(other);
    return *this;
}

inline ValAny::~ValAny() { Destroy(); }

inline void ValAny::Destroy() noexcept
{
    if (typeTag >= kObject && payload.pobj != nullptr)
        delete payload.pobj;
    payload = Payload{};
    typeTag = kEmpty;
}

inline void ValAny::Copy(const ValAny& other)
{
    if (this == &other)
        return;
    Destroy();
    if (other.typeTag >= kObject) {
        // A null object (only reachable by hand-built values) copies as null.
        if (other.payload.pobj != nullptr) {
            QMX_CHECK(other.payload.pobj->Copyable());
            payload.pobj = other.payload.pobj->Clone();
        }
        typeTag = other.typeTag;
        return;
    }
    std::memcpy(payload.bytes, other.payload.bytes, sizeof payload.bytes);
    typeTag = other.typeTag;
}

template <typename T>
T ValAny::Get() const
{
    static_assert(!std::is_same<T, T>::value, "ValAny::Get supports double, int, bool and const char*");
    return T();
}

template <>
inline double ValAny::Get<double>() const
{
    switch (typeTag) {
    case kInt32: return static_cast<double>(payload.i32);
    case kUInt32: return static_cast<double>(payload.u32);
    case kInt64: return static_cast<double>(payload.i64);
    case kUInt64: return static_cast<double>(payload.u64);
    case kFloat: return static_cast<double>(payload.f);
    case kDouble: return payload.d;
    default: throw AnyBadAccess();
    }
}

template <>
inline int ValAny::Get<int>() const
{
    constexpr int64_t kMin = std::numeric_limits<int32_t>::min();
    constexpr int64_t kMax = std::numeric_limits<int32_t>::max();
    switch (typeTag) {
    case kInt32:
        return payload.i32;
    case kUInt32:
        if (payload.u32 < 0x80000000u)
            return static_cast<int>(payload.u32);
        break;
    case kInt64:
        if (payload.i64 >= kMin && payload.i64 <= kMax)
            return static_cast<int>(payload.i64);
        break;
    case kUInt64:
        if (payload.u64 < 0x80000000u)
            return static_cast<int>(payload.u64);
        break;
    default:
        break;
    }
    throw AnyBadAccess();
}

template <>
inline bool ValAny::Get<bool>() const
{
    if (typeTag != kBool)
        throw AnyBadAccess();
    return payload.bytes[0] != 0;
}

template <>
inline const char* ValAny::Get<const char*>() const
{
    if (typeTag != kText)
        throw AnyBadAccess();
    return payload.text;
}

}  // namespace core
