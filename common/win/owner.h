/**
 * @file
 * The one design of a resource's owner. A kind of resource is a policy and an alias, most often one line: see handle.h.
 */
#pragma once

#include <windows.h>

#include <cstdint>
#include <type_traits>
#include <utility>

namespace kx {

/**
 * Owns one resource: move-only, given back when the owner goes out of scope. Giving back keeps the thread's last error,
 * so that the reason of a failed call outlives the early return.
 *
 * @tparam Policy names the resource's type Value; None() is the value that stands for no resource, Free(value) gives
 *         one back.
 */
template <class Policy>
class Owner {
public:
    using Value = typename Policy::Value;

    Owner() noexcept = default;
    explicit Owner(Value value) noexcept : m_value(value) {}
    ~Owner() { Reset(); }
    Owner(Owner&& other) noexcept : m_value(other.Release()) {}
    Owner& operator=(Owner&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;

    explicit operator bool() const noexcept { return m_value != Policy::None(); }
    Value Get() const noexcept { return m_value; }
    Value operator->() const noexcept
        requires std::is_class_v<std::remove_pointer_t<Value>>
    {
        return m_value;
    }

    /** Hands the resource over to the caller. */
    [[nodiscard]] Value Release() noexcept { return std::exchange(m_value, Policy::None()); }

    /** Gives back what is held and holds @p value, which must not be what is held already. */
    void Reset(Value value = Policy::None()) noexcept {
        const Value old = std::exchange(m_value, value);
        if (old == Policy::None()) {
            return;
        }
        const DWORD lastError = GetLastError();
        Policy::Free(old);
        SetLastError(lastError);
    }

    /** Gives back what is held and offers the empty place to a function that fills it. */
    [[nodiscard]] Value* Receive() noexcept {
        Reset();
        return &m_value;
    }

private:
    Value m_value = Policy::None();
};

/**
 * The policy of a resource that one function gives back.
 * @tparam T the resource's type
 * @tparam kFree called with the resource alone
 * @tparam kNone the value that stands for no resource, as a number
 */
template <class T, auto kFree, std::intptr_t kNone = 0>
struct FreedBy {
    using Value = T;
    static Value None() noexcept {
        if constexpr (std::is_pointer_v<T>) {
            return reinterpret_cast<T>(kNone);
        } else {
            return static_cast<T>(kNone);
        }
    }
    static void Free(Value value) noexcept { kFree(value); }
};

} // namespace kx
