/**
 * @file
 * The two functions of Windows that everything of DXGI and Direct3D comes from.
 */
#pragma once

#include "common/win/com.h"

#include <d3d11.h>
#include <dxgi1_2.h>

namespace kxvcr {

/** A graphics device and the context that its work is ordered with. */
struct GraphicsDevice {
    kx::ComPtr<ID3D11Device> device;
    kx::ComPtr<ID3D11DeviceContext> context;
};

/** Makes what displays are found with. */
class GraphicsSystem {
public:
    virtual ~GraphicsSystem() = default;

    /** What knows the adapters and their displays, as they are now. */
    virtual HRESULT CreateFactory(kx::ComPtr<IDXGIFactory1>& factory) noexcept = 0;

    /** A device of an adapter. */
    virtual HRESULT CreateDevice(IDXGIAdapter1* adapter, GraphicsDevice& device) noexcept = 0;
};

/**
 * Windows' own. Its libraries are loaded from the system folder at the first call, and stay, because a driver may have
 * threads in them; where there are none, the calls fail with ERROR_MOD_NOT_FOUND.
 */
class WindowsGraphics final : public GraphicsSystem {
public:
    HRESULT CreateFactory(kx::ComPtr<IDXGIFactory1>& factory) noexcept override;
    HRESULT CreateDevice(IDXGIAdapter1* adapter, GraphicsDevice& device) noexcept override;
};

} // namespace kxvcr
