// The memory of a picture, as a device-independent bitmap in a device context of its own.
#include "worker/capture/picturebuffer.h"

#include <utility>

namespace kxvcr {

PictureBuffer PictureBuffer::Create(std::uint32_t width, std::uint32_t height) noexcept {
    PictureBuffer buffer;
    buffer.m_dc = MemoryDc(CreateCompatibleDC(nullptr));
    if (!buffer.m_dc) {
        return {};
    }
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = static_cast<LONG>(width);
    info.bmiHeader.biHeight = -static_cast<LONG>(height); // negative: rows from top to bottom
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    buffer.m_bitmap = Bitmap(CreateDIBSection(buffer.m_dc.Get(), &info, DIB_RGB_COLORS, &bits, nullptr, 0));
    if (!buffer.m_bitmap) {
        return {};
    }
    buffer.m_selection = BitmapSelection(buffer.m_dc.Get(), buffer.m_bitmap.Get());
    buffer.m_pixels = {static_cast<std::byte*>(bits), kBytesPerPixel * width * height};
    buffer.m_width = width;
    buffer.m_height = height;
    return buffer;
}

PictureBuffer& PictureBuffer::operator=(PictureBuffer other) noexcept {
    std::swap(m_dc, other.m_dc);
    std::swap(m_bitmap, other.m_bitmap);
    std::swap(m_selection, other.m_selection);
    std::swap(m_pixels, other.m_pixels);
    std::swap(m_width, other.m_width);
    std::swap(m_height, other.m_height);
    return *this;
}

} // namespace kxvcr
