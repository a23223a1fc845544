/**
 * @file
 * Owners of the Windows and library resources that the worker holds: move-only, freed when they go out of scope.
 */
#pragma once

#include <turbojpeg.h>
#include <windows.h>

#include <utility>

namespace kxvcr {

/** Owns one value of Traits::Type; Traits::Invalid() is "nothing", Traits::Free() gives a value back. */
template <class Traits>
class Owner {
public:
    using Type = typename Traits::Type;

    Owner() noexcept = default;
    explicit Owner(Type value) noexcept : m_value(value) {}
    ~Owner() { Reset(); }
    Owner(Owner&& other) noexcept : m_value(std::exchange(other.m_value, Traits::Invalid())) {}
    Owner& operator=(Owner&& other) noexcept {
        if (this != &other) {
            Reset();
            m_value = std::exchange(other.m_value, Traits::Invalid());
        }
        return *this;
    }

    Type Get() const noexcept { return m_value; }
    explicit operator bool() const noexcept { return m_value != Traits::Invalid(); }

    /** Frees what is held; the thread's last error stays as it was. */
    void Reset() noexcept {
        if (m_value == Traits::Invalid()) {
            return;
        }
        const DWORD lastError = GetLastError();
        Traits::Free(std::exchange(m_value, Traits::Invalid()));
        SetLastError(lastError);
    }

private:
    Type m_value = Traits::Invalid();
};

struct KernelHandleTraits {
    using Type = HANDLE;
    static Type Invalid() noexcept { return nullptr; }
    static void Free(Type handle) noexcept { CloseHandle(handle); }
};
using KernelHandle = Owner<KernelHandleTraits>;

struct FileHandleTraits {
    using Type = HANDLE;
    static Type Invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void Free(Type handle) noexcept { CloseHandle(handle); }
};
using FileHandle = Owner<FileHandleTraits>;

struct ScreenDcTraits {
    using Type = HDC;
    static Type Invalid() noexcept { return nullptr; }
    static void Free(Type dc) noexcept { ReleaseDC(nullptr, dc); }
};
using ScreenDc = Owner<ScreenDcTraits>;

struct MemoryDcTraits {
    using Type = HDC;
    static Type Invalid() noexcept { return nullptr; }
    static void Free(Type dc) noexcept { DeleteDC(dc); }
};
using MemoryDc = Owner<MemoryDcTraits>;

struct BitmapTraits {
    using Type = HBITMAP;
    static Type Invalid() noexcept { return nullptr; }
    static void Free(Type bitmap) noexcept { DeleteObject(bitmap); }
};
using Bitmap = Owner<BitmapTraits>;

struct WindowTraits {
    using Type = HWND;
    static Type Invalid() noexcept { return nullptr; }
    static void Free(Type window) noexcept { DestroyWindow(window); }
};
using Window = Owner<WindowTraits>;

struct JpegCompressorTraits {
    using Type = tjhandle;
    static Type Invalid() noexcept { return nullptr; }
    static void Free(Type compressor) noexcept { tjDestroy(compressor); }
};
using JpegCompressor = Owner<JpegCompressorTraits>;

/** Keeps a bitmap selected into a device context, as long as both live. */
class BitmapSelection {
public:
    BitmapSelection() noexcept = default;
    BitmapSelection(HDC dc, HBITMAP bitmap) noexcept : m_dc(dc), m_previous(SelectObject(dc, bitmap)) {}
    ~BitmapSelection() {
        if (m_previous != nullptr) {
            SelectObject(m_dc, m_previous);
        }
    }
    BitmapSelection(BitmapSelection&& other) noexcept
        : m_dc(other.m_dc),
          m_previous(std::exchange(other.m_previous, nullptr)) {}
    BitmapSelection& operator=(BitmapSelection&& other) noexcept {
        std::swap(m_dc, other.m_dc);
        std::swap(m_previous, other.m_previous);
        return *this;
    }
    explicit operator bool() const noexcept { return m_previous != nullptr; }

private:
    HDC m_dc = nullptr;
    HGDIOBJ m_previous = nullptr;
};

} // namespace kxvcr
