/**
 * @file
 * Owners for COM: an interface, a text of automation, and the thread's membership in an apartment.
 */
#pragma once

#include "common/win/owner.h"

#include <objbase.h>
#include <oleauto.h>
#include <windows.h>

namespace kx {

template <class Interface>
struct ComPolicy {
    using Value = Interface*;
    static Value None() noexcept { return nullptr; }
    static void Free(Value object) noexcept { object->Release(); }
};
/** One reference to an object; IID_PPV_ARGS(pointer.Receive()) fills it. */
template <class Interface>
using ComPtr = Owner<ComPolicy<Interface>>;

using BString = Owner<FreedBy<BSTR, &SysFreeString>>;

/**
 * The thread's membership in an apartment, for as long as this lives: the multithreaded one, or the one that the
 * thread is in already. It is a member before the interfaces, so that it ends after them.
 */
class ComApartment {
public:
    ComApartment() noexcept : m_result(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ~ComApartment() {
        if (SUCCEEDED(m_result)) {
            CoUninitialize();
        }
    }
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;

    /** What the system said; a failure where the thread is in another apartment, in which it can work all the same. */
    HRESULT Result() const noexcept { return m_result; }

private:
    HRESULT m_result;
};

} // namespace kx
