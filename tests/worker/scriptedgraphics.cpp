// A graphics system that a test scripts. Its objects implement what the capture calls; everything else answers that it
// is not implemented.
#include "scriptedgraphics.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace kxtest {

namespace {

std::uint32_t BytesPerPixel(DXGI_FORMAT format) {
    return format == DXGI_FORMAT_R16G16B16A16_FLOAT ? 8 : 4;
}

// Counts references and deletes itself with the last one.
template <class Interface>
class Counted : public Interface {
public:
    virtual ~Counted() = default;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_count; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --m_count;
        if (left == 0) {
            delete this;
        }
        return left;
    }
    HRESULT STDMETHODCALLTYPE SetPrivateData(REFGUID, UINT, const void*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetPrivateDataInterface(REFGUID, const IUnknown*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetPrivateData(REFGUID, UINT*, void*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetParent(REFIID, void**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** object) override {
        *object = nullptr;
        if (!Has(wanted)) {
            return E_NOINTERFACE;
        }
        AddRef();
        *object = this;
        return S_OK;
    }

protected:
    virtual bool Has(REFIID wanted) const { return wanted == __uuidof(IUnknown); }

private:
    ULONG m_count = 1;
};

template <class Item>
HRESULT Give(const std::vector<Item>& items, UINT size, Item* buffer, UINT* used, HRESULT result) {
    if (buffer == nullptr || used == nullptr) {
        return E_INVALIDARG;
    }
    *used = static_cast<UINT>(items.size() * sizeof(Item));
    if (FAILED(result)) {
        return result;
    }
    if (size < *used) {
        return DXGI_ERROR_MORE_DATA;
    }
    std::copy(items.begin(), items.end(), buffer);
    return S_OK;
}

class Duplication final : public Counted<IDXGIOutputDuplication> {
public:
    Duplication(ScriptedOutput& output, ID3D11Device& device)
        : m_output(output),
          m_alive(output.alive),
          m_device(&device) {
        m_device->AddRef();
        ++*m_alive;
        ++m_output.duplicated;
    }
    ~Duplication() override {
        --*m_alive;
        m_device->Release();
    }

    void STDMETHODCALLTYPE GetDesc(DXGI_OUTDUPL_DESC* description) override {
        *description = {};
        description->ModeDesc.Format = m_output.format;
        description->Rotation = m_output.rotation;
    }

    HRESULT STDMETHODCALLTYPE AcquireNextFrame(UINT milliseconds, DXGI_OUTDUPL_FRAME_INFO* info,
                                               IDXGIResource** resource) override {
        if (info == nullptr || resource == nullptr) {
            return E_INVALIDARG;
        }
        *resource = nullptr;
        if (m_isHeld) {
            return DXGI_ERROR_INVALID_CALL;
        }
        if (!m_output.WaitForFrame(milliseconds, m_frame)) {
            return DXGI_ERROR_WAIT_TIMEOUT;
        }
        if (FAILED(m_frame.acquire)) {
            return m_frame.acquire;
        }
        m_isHeld = true;
        Describe(*info);
        return HandOut(resource);
    }

    HRESULT STDMETHODCALLTYPE GetFrameDirtyRects(UINT size, RECT* buffer, UINT* used) override {
        return m_isHeld ? Give(m_frame.dirty, size, buffer, used, m_frame.dirtyRects) : DXGI_ERROR_INVALID_CALL;
    }
    HRESULT STDMETHODCALLTYPE GetFrameMoveRects(UINT size, DXGI_OUTDUPL_MOVE_RECT* buffer, UINT* used) override {
        return m_isHeld ? Give(m_frame.moves, size, buffer, used, m_frame.moveRects) : DXGI_ERROR_INVALID_CALL;
    }
    HRESULT STDMETHODCALLTYPE GetFramePointerShape(UINT size, void* buffer, UINT* used,
                                                   DXGI_OUTDUPL_POINTER_SHAPE_INFO* info) override {
        if (!m_isHeld || m_frame.shape == nullptr) {
            return DXGI_ERROR_INVALID_CALL;
        }
        *info = m_frame.shape->info;
        return Give(m_frame.shape->bytes, size, static_cast<std::byte*>(buffer), used, m_frame.pointerShape);
    }
    HRESULT STDMETHODCALLTYPE MapDesktopSurface(DXGI_MAPPED_RECT*) override { return DXGI_ERROR_UNSUPPORTED; }
    HRESULT STDMETHODCALLTYPE UnMapDesktopSurface() override { return DXGI_ERROR_UNSUPPORTED; }
    HRESULT STDMETHODCALLTYPE ReleaseFrame() override {
        if (!m_isHeld) {
            return DXGI_ERROR_INVALID_CALL;
        }
        m_isHeld = false;
        return m_frame.release;
    }

private:
    void Describe(DXGI_OUTDUPL_FRAME_INFO& info) const {
        info = {};
        info.LastPresentTime.QuadPart = m_frame.presented;
        info.AccumulatedFrames = m_frame.pixels.empty() ? 0 : 1;
        info.LastMouseUpdateTime.QuadPart = m_frame.pointerMoved;
        info.PointerPosition = {m_frame.pointer, m_frame.isPointerVisible};
        if (m_frame.shape != nullptr) {
            const auto bytes = static_cast<UINT>(m_frame.shape->bytes.size());
            info.PointerShapeBufferSize = m_frame.announcedShapeBytes != 0 ? m_frame.announcedShapeBytes : bytes;
        }
        if (!m_frame.pixels.empty() && m_frame.tellsRects) {
            const auto both = static_cast<UINT>(m_frame.moves.size() * sizeof(DXGI_OUTDUPL_MOVE_RECT) +
                                                m_frame.dirty.size() * sizeof(RECT));
            info.TotalMetadataBufferSize = std::max(m_frame.announcedBytes != 0 ? m_frame.announcedBytes : both, 1U);
        }
    }

    // Also a frame that is only the pointer's comes with the desktop's surface.
    HRESULT HandOut(IDXGIResource** resource) {
        if (!m_texture || !m_frame.pixels.empty()) {
            D3D11_TEXTURE2D_DESC description = {};
            description.Width = m_output.Width();
            description.Height = m_output.Height();
            description.MipLevels = 1;
            description.ArraySize = 1;
            description.Format = m_output.format;
            description.SampleDesc = {1, 0};
            description.Usage = D3D11_USAGE_DEFAULT;
            description.BindFlags = D3D11_BIND_SHADER_RESOURCE;
            const D3D11_SUBRESOURCE_DATA data = {m_frame.pixels.data(),
                                                 m_output.Width() * BytesPerPixel(m_output.format), 0};
            const HRESULT result =
                m_device->CreateTexture2D(&description, m_frame.pixels.empty() ? nullptr : &data, m_texture.Receive());
            if (FAILED(result)) {
                return result;
            }
        }
        return m_texture->QueryInterface(IID_PPV_ARGS(resource));
    }

    ScriptedOutput& m_output;
    std::shared_ptr<int> m_alive;
    ID3D11Device* m_device;
    kx::ComPtr<ID3D11Texture2D> m_texture;
    ScriptedFrame m_frame;
    bool m_isHeld = false;
};

class Output final : public Counted<IDXGIOutput5> {
public:
    explicit Output(ScriptedOutput& script) : m_script(script) {}

    HRESULT STDMETHODCALLTYPE GetDesc(DXGI_OUTPUT_DESC* description) override {
        *description = {};
        description->DesktopCoordinates = m_script.desktop;
        description->AttachedToDesktop = m_script.isAttached;
        description->Rotation = m_script.rotation;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE DuplicateOutput(IUnknown* device, IDXGIOutputDuplication** duplication) override {
        return Duplicate(device, duplication, m_script.duplicate);
    }
    HRESULT STDMETHODCALLTYPE DuplicateOutput1(IUnknown* device, UINT flags, UINT count, const DXGI_FORMAT* formats,
                                               IDXGIOutputDuplication** duplication) override {
        if (flags != 0) {
            return E_INVALIDARG;
        }
        m_script.askedFormats.assign(formats, formats + count);
        return Duplicate(device, duplication, m_script.duplicate1);
    }

    HRESULT STDMETHODCALLTYPE GetDisplayModeList(DXGI_FORMAT, UINT, UINT*, DXGI_MODE_DESC*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE FindClosestMatchingMode(const DXGI_MODE_DESC*, DXGI_MODE_DESC*, IUnknown*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE WaitForVBlank() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE TakeOwnership(IUnknown*, WINBOOL) override { return E_NOTIMPL; }
    void STDMETHODCALLTYPE ReleaseOwnership() override {}
    HRESULT STDMETHODCALLTYPE GetGammaControlCapabilities(DXGI_GAMMA_CONTROL_CAPABILITIES*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetGammaControl(const DXGI_GAMMA_CONTROL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetGammaControl(DXGI_GAMMA_CONTROL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetDisplaySurface(IDXGISurface*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetDisplaySurfaceData(IDXGISurface*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetFrameStatistics(DXGI_FRAME_STATISTICS*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetDisplayModeList1(DXGI_FORMAT, UINT, UINT*, DXGI_MODE_DESC1*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE FindClosestMatchingMode1(const DXGI_MODE_DESC1*, DXGI_MODE_DESC1*, IUnknown*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetDisplaySurfaceData1(IDXGIResource*) override { return E_NOTIMPL; }
    WINBOOL STDMETHODCALLTYPE SupportsOverlays() override { return FALSE; }
    HRESULT STDMETHODCALLTYPE CheckOverlaySupport(DXGI_FORMAT, IUnknown*, UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CheckOverlayColorSpaceSupport(DXGI_FORMAT, DXGI_COLOR_SPACE_TYPE, IUnknown*,
                                                            UINT*) override {
        return E_NOTIMPL;
    }

protected:
    bool Has(REFIID wanted) const override {
        return wanted == __uuidof(IUnknown) || wanted == __uuidof(IDXGIOutput) ||
               (wanted == __uuidof(IDXGIOutput1) && m_script.hasOlderInterface) ||
               (wanted == __uuidof(IDXGIOutput5) && m_script.hasNewerInterface);
    }

private:
    HRESULT Duplicate(IUnknown* device, IDXGIOutputDuplication** duplication, HRESULT result) {
        *duplication = nullptr;
        if (FAILED(result)) {
            return result;
        }
        if (device == nullptr || *m_script.alive != 0) {
            return E_INVALIDARG;
        }
        kx::ComPtr<ID3D11Device> own;
        if (FAILED(device->QueryInterface(IID_PPV_ARGS(own.Receive())))) {
            return E_INVALIDARG;
        }
        *duplication = new Duplication(m_script, *own.Get());
        return S_OK;
    }

    ScriptedOutput& m_script;
};

class Adapter final : public Counted<IDXGIAdapter1> {
public:
    explicit Adapter(std::vector<ScriptedOutput*> outputs) : m_outputs(std::move(outputs)) {}

    HRESULT STDMETHODCALLTYPE EnumOutputs(UINT index, IDXGIOutput** output) override {
        *output = nullptr;
        if (index >= m_outputs.size()) {
            return DXGI_ERROR_NOT_FOUND;
        }
        *output = new Output(*m_outputs[index]);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetDesc(DXGI_ADAPTER_DESC*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CheckInterfaceSupport(REFGUID, LARGE_INTEGER*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetDesc1(DXGI_ADAPTER_DESC1*) override { return E_NOTIMPL; }

private:
    std::vector<ScriptedOutput*> m_outputs;
};

class Factory final : public Counted<IDXGIFactory1> {
public:
    explicit Factory(std::vector<std::vector<ScriptedOutput*>> adapters) : m_adapters(std::move(adapters)) {}

    HRESULT STDMETHODCALLTYPE EnumAdapters1(UINT index, IDXGIAdapter1** adapter) override {
        *adapter = nullptr;
        if (index >= m_adapters.size()) {
            return DXGI_ERROR_NOT_FOUND;
        }
        *adapter = new Adapter(m_adapters[index]);
        return S_OK;
    }
    WINBOOL STDMETHODCALLTYPE IsCurrent() override { return TRUE; }
    HRESULT STDMETHODCALLTYPE EnumAdapters(UINT, IDXGIAdapter**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE MakeWindowAssociation(HWND, UINT) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetWindowAssociation(HWND*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CreateSwapChain(IUnknown*, DXGI_SWAP_CHAIN_DESC*, IDXGISwapChain**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CreateSoftwareAdapter(HMODULE, IDXGIAdapter**) override { return E_NOTIMPL; }

private:
    std::vector<std::vector<ScriptedOutput*>> m_adapters;
};

bool IsOnItsSide(DXGI_MODE_ROTATION rotation) {
    return rotation == DXGI_MODE_ROTATION_ROTATE90 || rotation == DXGI_MODE_ROTATION_ROTATE270;
}

} // namespace

ScriptedOutput::ScriptedOutput(const RECT& area, DXGI_MODE_ROTATION turned, DXGI_FORMAT pixelFormat)
    : desktop(area),
      rotation(turned),
      format(pixelFormat),
      m_width(static_cast<std::uint32_t>(IsOnItsSide(turned) ? area.bottom - area.top : area.right - area.left)),
      m_height(static_cast<std::uint32_t>(IsOnItsSide(turned) ? area.right - area.left : area.bottom - area.top)),
      m_pixels(std::size_t{m_width} * m_height) {}

void ScriptedOutput::Fill(const RECT& rect, std::uint32_t color) {
    for (LONG y = rect.top; y < rect.bottom; ++y) {
        for (LONG x = rect.left; x < rect.right; ++x) {
            m_pixels[static_cast<std::size_t>(y) * m_width + static_cast<std::size_t>(x)] =
                color + static_cast<std::uint32_t>(x + 7 * y); // no two neighbours alike
        }
    }
    m_dirty.push_back(rect);
}

// What was drawn before in the same frame would be older than the movement: such a frame says so as something drawn.
void ScriptedOutput::Move(POINT from, const RECT& to) {
    const std::vector<std::uint32_t> before = m_pixels;
    for (LONG y = to.top; y < to.bottom; ++y) {
        for (LONG x = to.left; x < to.right; ++x) {
            m_pixels[static_cast<std::size_t>(y) * m_width + static_cast<std::size_t>(x)] =
                before[static_cast<std::size_t>(from.y + y - to.top) * m_width +
                       static_cast<std::size_t>(from.x + x - to.left)];
        }
    }
    if (m_dirty.empty()) {
        m_moves.push_back({from, to});
    } else {
        m_dirty.push_back(to);
    }
}

ScriptedFrame ScriptedOutput::NextFrame(std::int64_t ticks) {
    ScriptedFrame frame;
    const auto* bytes = reinterpret_cast<const std::byte*>(m_pixels.data());
    frame.pixels.assign(bytes, bytes + m_pixels.size() * sizeof(m_pixels[0]));
    frame.moves = std::exchange(m_moves, {});
    frame.dirty = std::exchange(m_dirty, {});
    frame.presented = ticks;
    return frame;
}

void ScriptedOutput::Present(std::int64_t ticks) {
    Push(NextFrame(ticks));
}

void ScriptedOutput::Push(ScriptedFrame frame) {
    {
        const std::lock_guard lock(m_mutex);
        m_frames.push_back(std::move(frame));
    }
    m_pushed.notify_all();
}

bool ScriptedOutput::WaitForFrame(UINT milliseconds, ScriptedFrame& frame) {
    std::unique_lock lock(m_mutex);
    waits += milliseconds != 0 ? 1 : 0;
    if (!m_pushed.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return !m_frames.empty(); })) {
        return false;
    }
    frame = std::move(m_frames.front());
    m_frames.pop_front();
    return true;
}

HRESULT ScriptedGraphics::CreateFactory(kx::ComPtr<IDXGIFactory1>& factory) noexcept {
    if (SUCCEEDED(factoryResult)) {
        factory.Reset(new Factory(m_adapters));
    }
    return factoryResult;
}

// One device for all tests: it takes the system long to make one.
HRESULT ScriptedGraphics::CreateDevice(IDXGIAdapter1*, kxvcr::GraphicsDevice& device) noexcept {
    if (FAILED(deviceResult)) {
        return deviceResult;
    }
    static kxvcr::GraphicsDevice shared;
    if (!shared.device) {
        static const auto create = reinterpret_cast<PFN_D3D11_CREATE_DEVICE>(
            reinterpret_cast<void (*)()>(GetProcAddress(LoadLibraryW(L"d3d11.dll"), "D3D11CreateDevice")));
        const HRESULT result = create(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0, D3D11_SDK_VERSION,
                                      shared.device.Receive(), nullptr, shared.context.Receive());
        if (FAILED(result)) {
            return result;
        }
    }
    shared.device->AddRef();
    device.device.Reset(shared.device.Get());
    shared.context->AddRef();
    device.context.Reset(shared.context.Get());
    ++devices;
    return S_OK;
}

} // namespace kxtest
