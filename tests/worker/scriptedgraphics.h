/**
 * @file
 * A graphics system that a test scripts: adapters with outputs whose frames are what the test says, handed out as
 * textures of the machine's own Direct3D. It is as strict as the system's: a frame is given back before the next, an
 * output is duplicated once at a time, and nothing is told of a frame that is not held.
 */
#pragma once

#include "worker/capture/graphicssystem.h"

#include <dxgi1_5.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace kxtest {

/** A pointer's shape as the system describes it. */
struct ScriptedShape {
    DXGI_OUTDUPL_POINTER_SHAPE_INFO info = {};
    std::vector<std::byte> bytes;
};

/** What a call for the next frame brings. */
struct ScriptedFrame {
    HRESULT acquire = S_OK;
    std::vector<std::byte> pixels; ///< the surface's, whole; empty: only the pointer changed
    std::vector<DXGI_OUTDUPL_MOVE_RECT> moves;
    std::vector<RECT> dirty;
    bool tellsRects = true;
    std::int64_t presented = 0;
    std::int64_t pointerMoved = 0;
    bool isPointerVisible = false;
    POINT pointer = {};
    std::shared_ptr<ScriptedShape> shape;
    UINT announcedBytes = 0;      ///< of the lists, where it is less than they take
    UINT announcedShapeBytes = 0; ///< of the shape, likewise
    HRESULT moveRects = S_OK;
    HRESULT dirtyRects = S_OK;
    HRESULT pointerShape = S_OK;
    HRESULT release = S_OK;
};

/** One output: what it looks like, what is drawn on it, and how its calls end. */
class ScriptedOutput {
public:
    ScriptedOutput(const RECT& desktop, DXGI_MODE_ROTATION rotation = DXGI_MODE_ROTATION_IDENTITY,
                   DXGI_FORMAT format = DXGI_FORMAT_B8G8R8A8_UNORM);

    // Drawing on the surface, which is not turned. What was drawn is in the next frame.
    std::uint32_t Width() const { return m_width; }
    std::uint32_t Height() const { return m_height; }
    std::uint32_t At(std::uint32_t x, std::uint32_t y) const { return m_pixels[std::size_t{y} * m_width + x]; }
    void Fill(const RECT& rect, std::uint32_t color);
    void Move(POINT from, const RECT& to);
    void Present(std::int64_t ticks);
    void Push(ScriptedFrame frame);

    /** What was drawn since the frame before, to be changed and pushed. */
    ScriptedFrame NextFrame(std::int64_t ticks);

    RECT desktop;
    DXGI_MODE_ROTATION rotation;
    DXGI_FORMAT format;
    bool isAttached = true;
    bool hasNewerInterface = true;
    bool hasOlderInterface = true;
    HRESULT duplicate1 = S_OK;
    HRESULT duplicate = S_OK;
    std::vector<DXGI_FORMAT> askedFormats;                 ///< by the newer call
    int duplicated = 0;                                    ///< how often
    std::shared_ptr<int> alive = std::make_shared<int>(0); ///< duplications, which may outlive the output
    int waits = 0;                                         ///< for a frame, with a time-out

    // For the duplication:
    bool WaitForFrame(UINT milliseconds, ScriptedFrame& frame);

private:
    std::uint32_t m_width;
    std::uint32_t m_height;
    std::vector<std::uint32_t> m_pixels;
    std::vector<DXGI_OUTDUPL_MOVE_RECT> m_moves;
    std::vector<RECT> m_dirty;

    std::mutex m_mutex; // for the frames
    std::condition_variable m_pushed;
    std::deque<ScriptedFrame> m_frames;
};

/** The system: adapters, each with outputs, all of them borrowed. */
class ScriptedGraphics final : public kxvcr::GraphicsSystem {
public:
    explicit ScriptedGraphics(std::vector<std::vector<ScriptedOutput*>> adapters) : m_adapters(std::move(adapters)) {}

    HRESULT CreateFactory(kx::ComPtr<IDXGIFactory1>& factory) noexcept override;
    HRESULT CreateDevice(IDXGIAdapter1* adapter, kxvcr::GraphicsDevice& device) noexcept override;

    HRESULT factoryResult = S_OK;
    HRESULT deviceResult = S_OK;
    int devices = 0;

private:
    std::vector<std::vector<ScriptedOutput*>> m_adapters;
};

} // namespace kxtest
