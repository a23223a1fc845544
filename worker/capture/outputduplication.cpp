// The duplication of one output. A frame is held until the next one is asked for, as the system recommends: while it
// is, the system notes what changes instead of copying it.
#include "worker/capture/outputduplication.h"

#include "worker/capture/sdrwhite.h"

#include <dxgi1_5.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

namespace kxvcr {

namespace {

// Asked for in this order: an ordinary display has the first, one with a high dynamic range the second.
constexpr DXGI_FORMAT kFormats[] = {DXGI_FORMAT_B8G8R8A8_UNORM, DXGI_FORMAT_R16G16B16A16_FLOAT};

ScreenRect RectOf(const RECT& rect) noexcept {
    return {rect.left, rect.top, static_cast<std::uint32_t>(rect.right - rect.left),
            static_cast<std::uint32_t>(rect.bottom - rect.top)};
}

Turn TurnOf(DXGI_MODE_ROTATION rotation) noexcept {
    switch (rotation) {
    case DXGI_MODE_ROTATION_ROTATE90:
        return Turn::Quarter;
    case DXGI_MODE_ROTATION_ROTATE180:
        return Turn::Half;
    case DXGI_MODE_ROTATION_ROTATE270:
        return Turn::ThreeQuarters;
    default:
        return Turn::None;
    }
}

// The newer call names the formats that are understood; the older one, which the system still has where it refuses the
// newer, always gives eight bits a colour.
HRESULT Duplicate(IDXGIOutput& output, ID3D11Device& device, kx::ComPtr<IDXGIOutputDuplication>& duplication) {
    kx::ComPtr<IDXGIOutput5> newer;
    if (SUCCEEDED(output.QueryInterface(IID_PPV_ARGS(newer.Receive()))) &&
        SUCCEEDED(newer->DuplicateOutput1(&device, 0, static_cast<UINT>(std::size(kFormats)), kFormats,
                                          duplication.Receive()))) {
        return S_OK;
    }
    kx::ComPtr<IDXGIOutput1> older;
    if (const HRESULT result = output.QueryInterface(IID_PPV_ARGS(older.Receive())); FAILED(result)) {
        return result;
    }
    return older->DuplicateOutput(&device, duplication.Receive());
}

template <class Interface>
kx::ComPtr<Interface> Share(Interface* object) noexcept {
    object->AddRef();
    return kx::ComPtr<Interface>(object);
}

// Calls one of the duplication's functions that fill a list, once more when the list turns out to be longer than was
// announced.
template <class Item, class Call>
HRESULT ReadList(UINT announcedBytes, std::vector<Item>& list, const Call& call) {
    UINT bytes = announcedBytes;
    for (bool again : {true, false}) {
        list.resize((bytes + sizeof(Item) - 1) / sizeof(Item) + 1); // never empty: no list is no parameter
        const HRESULT result = call(static_cast<UINT>(list.size() * sizeof(Item)), list.data(), &bytes);
        if (result == DXGI_ERROR_MORE_DATA && again) {
            continue;
        }
        list.resize(SUCCEEDED(result) ? std::min(bytes / sizeof(Item), list.size()) : 0);
        return result;
    }
    return DXGI_ERROR_MORE_DATA;
}

} // namespace

HRESULT OutputDuplication::Open(IDXGIOutput& output, const GraphicsDevice& device,
                                std::unique_ptr<OutputDuplication>& opened) {
    std::unique_ptr<OutputDuplication> made(new OutputDuplication);
    made->m_device = Share(device.device.Get());
    made->m_context = Share(device.context.Get());
    const HRESULT result = made->Begin(output, *device.device.Get());
    if (SUCCEEDED(result)) {
        opened = std::move(made);
    }
    return result;
}

HRESULT OutputDuplication::Begin(IDXGIOutput& output, ID3D11Device& device) {
    DXGI_OUTPUT_DESC description = {};
    if (const HRESULT result = output.GetDesc(&description); FAILED(result)) {
        return result;
    }
    if (const HRESULT result = Duplicate(output, device, m_duplication); FAILED(result)) {
        return result;
    }
    DXGI_OUTDUPL_DESC duplicated = {};
    m_duplication->GetDesc(&duplicated);
    m_place = RectOf(description.DesktopCoordinates);
    m_turn = TurnOf(duplicated.Rotation);
    m_size = Turned({m_place.width, m_place.height}, Back(m_turn));
    m_deviceName = description.DeviceName;
    return S_OK;
}

OutputDuplication::~OutputDuplication() {
    Release();
}

// A frame that the system has taken back already counts as given back.
HRESULT OutputDuplication::Release() noexcept {
    m_image.Reset();
    if (!std::exchange(m_holdsFrame, false)) {
        return S_OK;
    }
    const HRESULT result = m_duplication->ReleaseFrame();
    return result == DXGI_ERROR_INVALID_CALL ? S_OK : result;
}

HRESULT OutputDuplication::Next(UINT timeoutMs, OutputFrame& frame) {
    frame.hasImage = false;
    frame.isWhole = false;
    frame.moves.clear();
    frame.dirty.clear();
    frame.pointer.reset();
    if (const HRESULT result = Release(); FAILED(result)) {
        return result;
    }
    DXGI_OUTDUPL_FRAME_INFO info = {};
    kx::ComPtr<IDXGIResource> resource;
    if (const HRESULT result = m_duplication->AcquireNextFrame(timeoutMs, &info, resource.Receive()); FAILED(result)) {
        return result;
    }
    m_holdsFrame = true;
    if (info.LastMouseUpdateTime.QuadPart != 0) {
        m_shapeBytes = info.PointerShapeBufferSize;
        frame.pointer = {info.PointerPosition.Position, info.PointerPosition.Visible != FALSE, m_shapeBytes != 0,
                         info.LastMouseUpdateTime.QuadPart};
    }
    // Both are 0 when only the pointer changed.
    frame.hasImage = info.LastPresentTime.QuadPart != 0 || info.AccumulatedFrames != 0;
    frame.presentedTicks = info.LastPresentTime.QuadPart;
    if (!frame.hasImage) {
        return S_OK;
    }
    if (const HRESULT result = TakeImage(resource.Get()); FAILED(result)) {
        return result;
    }
    frame.isWhole = !std::exchange(m_hadImage, true) || info.TotalMetadataBufferSize == 0;
    return frame.isWhole ? S_OK : ReadChanges(info.TotalMetadataBufferSize, frame);
}

HRESULT OutputDuplication::TakeImage(IDXGIResource* resource) {
    if (resource == nullptr) {
        return E_POINTER;
    }
    if (const HRESULT result = resource->QueryInterface(IID_PPV_ARGS(m_image.Receive())); FAILED(result)) {
        return result;
    }
    D3D11_TEXTURE2D_DESC description = {};
    m_image->GetDesc(&description);
    // The mode changed, and the system has not said so yet.
    if (description.Width != m_size.width || description.Height != m_size.height) {
        return DXGI_ERROR_ACCESS_LOST;
    }
    m_isToned = description.Format == DXGI_FORMAT_R16G16B16A16_FLOAT;
    if (m_isToned && !m_toning) {
        m_toning.emplace(SdrWhiteNits(m_deviceName));
    }
    const bool isUnderstood = m_isToned || description.Format == DXGI_FORMAT_B8G8R8A8_UNORM;
    return isUnderstood ? EnsureStaging(description) : DXGI_ERROR_UNSUPPORTED;
}

// Where it cannot be said what changed, all of it may have; only a lost duplication is told on.
HRESULT OutputDuplication::ReadChanges(UINT metadataBytes, OutputFrame& frame) {
    HRESULT result = ReadList(metadataBytes, frame.moves, [this](UINT size, DXGI_OUTDUPL_MOVE_RECT* list, UINT* used) {
        return m_duplication->GetFrameMoveRects(size, list, used);
    });
    if (SUCCEEDED(result)) {
        result = ReadList(metadataBytes, frame.dirty, [this](UINT size, RECT* list, UINT* used) {
            return m_duplication->GetFrameDirtyRects(size, list, used);
        });
    }
    if (result == DXGI_ERROR_ACCESS_LOST) {
        return result;
    }
    frame.isWhole = FAILED(result);
    return S_OK;
}

HRESULT OutputDuplication::ReadShape(PointerShape& shape) {
    DXGI_OUTDUPL_POINTER_SHAPE_INFO info = {};
    std::vector<std::byte> bytes;
    const HRESULT result = ReadList(m_shapeBytes, bytes, [&](UINT size, std::byte* list, UINT* used) {
        return m_duplication->GetFramePointerShape(size, list, used, &info);
    });
    if (SUCCEEDED(result)) {
        shape.Read(info, bytes);
    }
    return result == DXGI_ERROR_ACCESS_LOST ? result : S_OK;
}

HRESULT OutputDuplication::EnsureStaging(D3D11_TEXTURE2D_DESC description) {
    if (m_staging) {
        D3D11_TEXTURE2D_DESC before = {};
        m_staging->GetDesc(&before);
        if (before.Format == description.Format) {
            return S_OK;
        }
    }
    description.MipLevels = 1;
    description.ArraySize = 1;
    description.SampleDesc = {1, 0};
    description.Usage = D3D11_USAGE_STAGING;
    description.BindFlags = 0;
    description.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    description.MiscFlags = 0;
    return m_device->CreateTexture2D(&description, nullptr, m_staging.Receive());
}

HRESULT OutputDuplication::Read(std::span<const PictureRect> parts,
                                const std::function<void(const SurfaceView&)>& use) {
    if (parts.empty()) {
        return S_OK;
    }
    for (const PictureRect& part : parts) {
        const D3D11_BOX box = {part.left, part.top, 0, part.left + part.width, part.top + part.height, 1};
        m_context->CopySubresourceRegion(m_staging.Get(), 0, part.left, part.top, 0, m_image.Get(), 0, &box);
    }
    D3D11_MAPPED_SUBRESOURCE mapped = {};
    if (const HRESULT result = m_context->Map(m_staging.Get(), 0, D3D11_MAP_READ, 0, &mapped); FAILED(result)) {
        return result;
    }
    use({static_cast<const std::byte*>(mapped.pData), mapped.RowPitch, m_isToned ? &*m_toning : nullptr});
    m_context->Unmap(m_staging.Get(), 0);
    return S_OK;
}

} // namespace kxvcr
