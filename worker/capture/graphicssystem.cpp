// Loads the two libraries of the graphics system. They are not imported, so that a Windows without them, or with a
// driver that breaks them, still has a worker.
#include "worker/capture/graphicssystem.h"

namespace kxvcr {

namespace {

HRESULT LastFailure() noexcept {
    const DWORD error = GetLastError();
    return error == ERROR_SUCCESS ? E_FAIL : HRESULT_FROM_WIN32(error);
}

// Null, with the last error, when the library or the function is not there.
template <class Function>
Function* FunctionOf(const wchar_t* library, const char* name) noexcept {
    const HMODULE module = LoadLibraryExW(library, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (module == nullptr) {
        return nullptr;
    }
    // By way of a plain pointer to a function, as the compilers ask.
    return reinterpret_cast<Function*>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

} // namespace

HRESULT WindowsGraphics::CreateFactory(kx::ComPtr<IDXGIFactory1>& factory) noexcept {
    static const auto create = FunctionOf<HRESULT WINAPI(REFIID, void**)>(L"dxgi.dll", "CreateDXGIFactory1");
    if (create == nullptr) {
        return LastFailure();
    }
    return create(IID_PPV_ARGS(factory.Receive()));
}

HRESULT WindowsGraphics::CreateDevice(IDXGIAdapter1* adapter, GraphicsDevice& device) noexcept {
    static const auto create = FunctionOf<decltype(D3D11CreateDevice)>(L"d3d11.dll", "D3D11CreateDevice");
    if (create == nullptr) {
        return LastFailure();
    }
    return create(adapter, D3D_DRIVER_TYPE_UNKNOWN, nullptr, 0, nullptr, 0, D3D11_SDK_VERSION, device.device.Receive(),
                  nullptr, device.context.Receive());
}

} // namespace kxvcr
