/// @file
/// Inline implementation of core::ValAny; included by val_any.h only.
#pragma once

#include <cstring>
#include <limits>
#include <type_traits>

#include "qmx_check.h"

namespace core {

inline ValAny::ValAny() noexcept : u64(0), typeTag(kEmpty) {}

inline ValAny::ValAny(bool value) noexcept : u64(0), typeTag(kBool)
{
    bytes[0] = value ? 1 : 0;
}

inline ValAny::ValAny(int32_t value) noexcept : u64(0), typeTag(kInt32) { i32 = value; }
inline ValAny::ValAny(uint32_t value) noexcept : u64(0), typeTag(kUInt32) { u32 = value; }
inline ValAny::ValAny(int64_t value) noexcept : u64(0), typeTag(kInt64) { i64 = value; }
inline ValAny::ValAny(uint64_t value) noexcept : u64(0), typeTag(kUInt64) { u64 = value; }
inline ValAny::ValAny(float value) noexcept : u64(0), typeTag(kFloat) { f = value; }
inline ValAny::ValAny(double value) noexcept : u64(0), typeTag(kDouble) { d = value; }
inline ValAny::ValAny(const char* text) noexcept : u64(0), typeTag(kText) { ptext = text; }

inline ValAny::ValAny(ValAnyObject* object, uint32_t tag) : u64(0), typeTag(kEmpty)
{
    QMX_CHECK(tag >= kObject);
    pobj = object;
    typeTag = tag;
}

inline ValAny::ValAny(const ValAny& other) : u64(0), typeTag(kEmpty) { Copy(other); }

inline ValAny& ValAny::operator=(const ValAny& other)
{
    Copy(other);
    return *this;
}

inline ValAny::~ValAny() { Destroy(); }

inline void ValAny::Destroy() noexcept
{
    if (typeTag >= kObject && pobj != nullptr)
        delete pobj;
    u64 = 0;
    typeTag = kEmpty;
}

inline void ValAny::Copy(const ValAny& other)
{
    if (this == &other)
        return;
    Destroy();
    if (other.typeTag >= kObject) {
        // A null object (only reachable by hand-built values) copies as null.
        if (other.pobj != nullptr) {
            QMX_CHECK(other.pobj->Copyable());
            pobj = other.pobj->Clone();
        }
        typeTag = other.typeTag;
        return;
    }
    std::memcpy(bytes, other.bytes, sizeof bytes);
    typeTag = other.typeTag;
}

inline int32_t ValAny::GetLow32() const
{
    switch (typeTag) {
    case kInt32: return i32;
    case kUInt32: return static_cast<int32_t>(u32);
    case kInt64:
    case kUInt64: return static_cast<int32_t>(static_cast<uint32_t>(u64));
    default: throw AnyBadAccess();
    }
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
    case kInt32: return static_cast<double>(i32);
    case kUInt32: return static_cast<double>(u32);
    case kInt64: return static_cast<double>(i64);
    case kUInt64: return static_cast<double>(u64);
    case kFloat: return static_cast<double>(f);
    case kDouble: return d;
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
        return i32;
    case kUInt32:
        if (u32 < 0x80000000u)
            return static_cast<int>(u32);
        break;
    case kInt64:
        if (i64 >= kMin && i64 <= kMax)
            return static_cast<int>(i64);
        break;
    case kUInt64:
        if (u64 < 0x80000000u)
            return static_cast<int>(u64);
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
    return bytes[0] != 0;
}

template <>
inline const char* ValAny::Get<const char*>() const
{
    if (typeTag != kText)
        throw AnyBadAccess();
    return ptext;
}

}  // namespace core
