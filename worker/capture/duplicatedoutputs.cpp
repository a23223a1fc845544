// Finds the outputs that show an area. A device belongs to one adapter, so that each adapter gets its own, once one of
// its outputs is needed.
#include "worker/capture/duplicatedoutputs.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace kxvcr {

namespace {

ScreenRect PlaceOf(IDXGIOutput& output) noexcept {
    DXGI_OUTPUT_DESC description = {};
    if (FAILED(output.GetDesc(&description)) || !description.AttachedToDesktop) {
        return {};
    }
    const RECT& place = description.DesktopCoordinates;
    return {place.left, place.top, static_cast<std::uint32_t>(place.right - place.left),
            static_cast<std::uint32_t>(place.bottom - place.top)};
}

// Displays that show the same, as for an audience, have the same place.
bool IsAmong(const std::vector<std::unique_ptr<OutputDuplication>>& outputs, const ScreenRect& place) noexcept {
    return std::ranges::any_of(outputs, [&](const auto& output) { return output->Place() == place; });
}

DuplicationFailure DuplicateOutputsOf(IDXGIAdapter1& adapter, GraphicsSystem& system, const ScreenRect& area,
                                      std::vector<std::unique_ptr<OutputDuplication>>& outputs) {
    GraphicsDevice device;
    kx::ComPtr<IDXGIOutput> output;
    for (UINT i = 0; SUCCEEDED(adapter.EnumOutputs(i, output.Receive())); ++i) {
        const ScreenRect place = PlaceOf(*output.Get());
        if (Intersection(place, area).width == 0 || IsAmong(outputs, place)) {
            continue;
        }
        if (!device.device) {
            if (const HRESULT result = system.CreateDevice(&adapter, device); FAILED(result)) {
                return {L"D3D11CreateDevice", result};
            }
        }
        std::unique_ptr<OutputDuplication> opened;
        if (const HRESULT result = OutputDuplication::Open(*output.Get(), device, opened); FAILED(result)) {
            return {L"DuplicateOutput", result};
        }
        outputs.push_back(std::move(opened));
    }
    return {};
}

DuplicationFailure DuplicateOnAllAdapters(GraphicsSystem& system, const ScreenRect& area,
                                          std::vector<std::unique_ptr<OutputDuplication>>& outputs) {
    kx::ComPtr<IDXGIFactory1> factory;
    if (const HRESULT result = system.CreateFactory(factory); FAILED(result)) {
        return {L"CreateDXGIFactory1", result};
    }
    kx::ComPtr<IDXGIAdapter1> adapter;
    for (UINT i = 0; SUCCEEDED(factory->EnumAdapters1(i, adapter.Receive())); ++i) {
        const DuplicationFailure failure = DuplicateOutputsOf(*adapter.Get(), system, area, outputs);
        if (FAILED(failure.result)) {
            return failure;
        }
    }
    return outputs.empty() ? DuplicationFailure{L"EnumOutputs", DXGI_ERROR_NOT_FOUND} : DuplicationFailure{};
}

} // namespace

DuplicationFailure DuplicateOutputs(GraphicsSystem& system, const ScreenRect& area,
                                    std::vector<std::unique_ptr<OutputDuplication>>& outputs) {
    std::vector<std::unique_ptr<OutputDuplication>> opened;
    const DuplicationFailure failure = DuplicateOnAllAdapters(system, area, opened);
    outputs.clear();
    if (SUCCEEDED(failure.result)) {
        outputs = std::move(opened);
    }
    return failure;
}

} // namespace kxvcr
