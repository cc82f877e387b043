/// @file
/// The tagged value core::ValAny and what it may own.
#pragma once

#include <cstdint>
#include <stdexcept>

namespace core {

/// Thrown when a value is read as a kind it cannot be converted to.
class AnyBadAccess : public std::logic_error {
public:
    AnyBadAccess() : std::logic_error("ValAny Bad Access") {}
};

/// Base of the heap objects a ValAny can own. Copying a value whose object is
/// not Copyable() is a fatal error, not an exception.
class ValAnyObject {
public:
    virtual ~ValAnyObject() = default;
    virtual bool Copyable() const = 0;
    /// Returns a new heap copy that the caller owns.
    virtual ValAnyObject* Clone() const = 0;
};

/// core::ValAny: the tagged value that curves store, 16 bytes, passed by value
/// across the binary interface. Plain kinds live in the payload; object kinds
/// (tag 255 and above) own a heap object that is cloned on copy.
class ValAny {
public:
    enum Tag : uint32_t {
        kEmpty = 0,
        kBool = 1,
        kInt32 = 2,
        kUInt32 = 3,
        kInt64 = 4,
        kUInt64 = 5,
        kFloat = 6,
        kDouble = 7,
        kText = 8,   ///< borrowed const char*: the text is neither owned nor copied
        kObject = 255,
    };

    ValAny() noexcept;
    ValAny(bool value) noexcept;
    ValAny(int32_t value) noexcept;
    ValAny(uint32_t value) noexcept;
    ValAny(int64_t value) noexcept;
    ValAny(uint64_t value) noexcept;
    ValAny(float value) noexcept;
    ValAny(double value) noexcept;
    ValAny(const char* text) noexcept;
    /// Takes ownership of `object`; `tag` must be kObject or above.
    ValAny(ValAnyObject* object, uint32_t tag);

    ValAny(const ValAny& other);
    ValAny& operator=(const ValAny& other);
    ~ValAny();

    /// Makes this value a copy of `other`: plain kinds bitwise, objects cloned.
    void Copy(const ValAny& other);
    /// Frees an owned object and leaves the value empty.
    void Destroy() noexcept;

    uint32_t GetTypeTag() const noexcept { return typeTag; }
    bool IsObject() const noexcept { return typeTag >= kObject; }
    /// Integers of any width and signedness.
    bool IsInteger() const noexcept { return typeTag >= kInt32 && typeTag <= kUInt64; }
    /// Integers, float and double: the kinds Get<double> accepts.
    bool IsNumber() const noexcept { return typeTag >= kInt32 && typeTag <= kDouble; }
    /// The low 32 bits of an integer kind's value, without a range check;
    /// throws AnyBadAccess for other kinds.
    int32_t GetLow32() const;
    /// The owned object of an object kind, else null.
    const ValAnyObject* GetObject() const noexcept { return IsObject() ? pobj : nullptr; }

    /// Converting reads; each throws AnyBadAccess for a kind it does not accept.
    /// - double:      integers (by signedness), float, double
    /// - int:         integers whose value fits in a signed 32-bit int
    /// - bool:        bool only
    /// - const char*: text only
    template <typename T>
    T Get() const;

private:
    /// The 8-byte payload: the plain value, or the owned object `pobj`.
    union {
        bool b;
        int32_t i32;
        uint32_t u32;
        int64_t i64;
        uint64_t u64;
        float f;
        double d;
        const char* ptext;
        ValAnyObject* pobj;
        unsigned char bytes[8];
    };
    uint32_t typeTag;
};

static_assert(sizeof(ValAny) == 16, "ValAny is part of the binary interface");

}  // namespace core

#include "impl_valany.h"
