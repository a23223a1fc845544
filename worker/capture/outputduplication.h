/**
 * @file
 * One output of a graphics adapter, as the system hands its picture out: a frame at a time, with what changed in it.
 */
#pragma once

#include "worker/capture/graphicssystem.h"
#include "worker/capture/pointershape.h"
#include "worker/capture/screenlayout.h"
#include "worker/capture/toning.h"
#include "worker/capture/turn.h"
#include "worker/video/videoencoder.h"

#include <dxgi1_2.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace kxvcr {

/** What an output's newest frame says. Rectangles are of the surface, which may lie on its side; see Turn. */
struct OutputFrame {
    bool hasImage = false;                     ///< the picture changed: in all of it, or where the rectangles say
    bool isWhole = false;                      ///< where it changed is not known
    std::vector<DXGI_OUTDUPL_MOVE_RECT> moves; ///< what moved within the picture; before the next
    std::vector<RECT> dirty;
    std::int64_t presentedTicks = 0; ///< when the picture was shown first; 0 when that is not known

    struct Pointer {
        POINT place; ///< of its shape's upper left pixel, on the upright output
        bool isVisible;
        bool hasNewShape;
        std::int64_t ticks;
    };
    std::optional<Pointer> pointer; ///< set when the pointer moved or changed
};

/** The duplication of one output. Every call answers with what the system said. */
class OutputDuplication {
public:
    /** @param device of the output's adapter. @throws std::bad_alloc */
    static HRESULT Open(IDXGIOutput& output, const GraphicsDevice& device, std::unique_ptr<OutputDuplication>& opened);
    ~OutputDuplication();
    OutputDuplication(const OutputDuplication&) = delete;
    OutputDuplication& operator=(const OutputDuplication&) = delete;

    /** Where the output is on the screen. */
    const ScreenRect& Place() const noexcept { return m_place; }

    /** By how much the surface has to be turned to stand upright. */
    Turn TurnToStand() const noexcept { return m_turn; }

    /** The surface's size, before it is turned. */
    const PixelSize& Size() const noexcept { return m_size; }

    /** Gives the frame before back and waits for the next. DXGI_ERROR_WAIT_TIMEOUT when none comes in time. */
    HRESULT Next(UINT timeoutMs, OutputFrame& frame);

    /**
     * Reads the pointer's shape of a frame that has a new one. A shape of an unknown kind changes nothing.
     * @throws std::bad_alloc
     */
    HRESULT ReadShape(PointerShape& shape);

    /** Copies parts of the frame's picture where they can be read and lends them to @p use. */
    HRESULT Read(std::span<const PictureRect> parts, const std::function<void(const SurfaceView&)>& use);

private:
    OutputDuplication() = default;
    HRESULT Begin(IDXGIOutput& output, ID3D11Device& device);
    HRESULT Release() noexcept;
    HRESULT TakeImage(IDXGIResource* resource);
    HRESULT ReadChanges(UINT metadataBytes, OutputFrame& frame);
    HRESULT EnsureStaging(D3D11_TEXTURE2D_DESC description);

    ScreenRect m_place;
    Turn m_turn = Turn::None;
    PixelSize m_size;
    std::wstring m_deviceName;
    kx::ComPtr<ID3D11Device> m_device;
    kx::ComPtr<ID3D11DeviceContext> m_context;
    kx::ComPtr<IDXGIOutputDuplication> m_duplication;
    kx::ComPtr<ID3D11Texture2D> m_staging;
    kx::ComPtr<ID3D11Texture2D> m_image; // the frame's, while it is held
    bool m_holdsFrame = false;
    bool m_hadImage = false;
    UINT m_shapeBytes = 0;
    bool m_isToned = false;
    std::optional<Toning> m_toning; // made for the first picture with a high dynamic range
};

} // namespace kxvcr
