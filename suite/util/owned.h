// Owners of the Windows resources that this library takes. Each is one alias of one policy.
#pragma once

#include <windows.h>

#include <utility>

namespace kxutil {

/** Move-only owner of a handle-like value. A policy names the type, the value of "none" and how to give it back. */
template <typename Policy>
class Owned {
public:
    using Value = typename Policy::Value;

    Owned() noexcept = default;
    explicit Owned(Value value) noexcept : m_value(value) {}
    ~Owned() { Reset(); }
    Owned(Owned&& other) noexcept : m_value(other.Release()) {}
    Owned& operator=(Owned&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;

    explicit operator bool() const noexcept { return m_value != Policy::None(); }
    Value Get() const noexcept { return m_value; }
    Value Release() noexcept { return std::exchange(m_value, Policy::None()); }

    void Reset(Value value = Policy::None()) noexcept {
        if (m_value != Policy::None()) {
            Policy::Close(m_value);
        }
        m_value = value;
    }

    /** Gives back what is held and offers the empty place to a function that fills it. */
    Value* Receive() noexcept {
        Reset();
        return &m_value;
    }

private:
    Value m_value = Policy::None();
};

struct FilePolicy {
    using Value = HANDLE;
    static Value None() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(Value value) noexcept { CloseHandle(value); }
};

struct KernelPolicy {
    using Value = HANDLE;
    static Value None() noexcept { return nullptr; }
    static void Close(Value value) noexcept { CloseHandle(value); }
};

struct RegistryKeyPolicy {
    using Value = HKEY;
    static Value None() noexcept { return nullptr; }
    static void Close(Value value) noexcept { RegCloseKey(value); }
};

struct LocalBlockPolicy {
    using Value = wchar_t*;
    static Value None() noexcept { return nullptr; }
    static void Close(Value value) noexcept { LocalFree(value); }
};

using OwnedFile = Owned<FilePolicy>;
using OwnedKernelHandle = Owned<KernelPolicy>;
using OwnedRegistryKey = Owned<RegistryKeyPolicy>;
using OwnedLocalText = Owned<LocalBlockPolicy>;

} // namespace kxutil
