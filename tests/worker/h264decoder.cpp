// Hands the decoder units with start codes, as its library wants them, and copies the picture it gives back.
#include "tests/worker/h264decoder.h"

#include <wels/codec_api.h>

#include <algorithm>
#include <array>

namespace kxvcr::test {

namespace {

constexpr std::array<std::byte, 4> kStartCode = {std::byte{0}, std::byte{0}, std::byte{0}, std::byte{1}};

template <class Function>
Function Find(HMODULE module, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

void AppendUnit(std::vector<std::byte>& stream, std::span<const std::byte> unit) {
    stream.insert(stream.end(), kStartCode.begin(), kStartCode.end());
    stream.insert(stream.end(), unit.begin(), unit.end());
}

std::vector<std::uint8_t> Plane(const unsigned char* rows, int stride, std::uint32_t width, std::uint32_t height) {
    std::vector<std::uint8_t> plane;
    for (std::uint32_t y = 0; y < height; ++y) {
        const unsigned char* row = rows + static_cast<std::size_t>(stride) * y;
        plane.insert(plane.end(), row, row + width);
    }
    return plane;
}

} // namespace

std::vector<std::byte> ParameterSets(const std::vector<std::byte>& decoderConfig) {
    constexpr std::size_t kFirstSet = 6;
    std::vector<std::byte> stream;
    const std::span<const std::byte> record(decoderConfig);
    std::size_t at = kFirstSet;
    const auto appendSet = [&] {
        const std::size_t size =
            std::to_integer<std::size_t>(record[at]) * 256 + std::to_integer<std::size_t>(record[at + 1]);
        AppendUnit(stream, record.subspan(at + 2, size));
        at += 2 + size;
    };
    appendSet();
    ++at; // the number of sets of picture parameters
    appendSet();
    return stream;
}

std::vector<std::vector<std::byte>> Units(const Packet& packet) {
    std::vector<std::vector<std::byte>> units;
    std::span<const std::byte> rest(packet.bytes);
    constexpr std::size_t kLengthBytes = 4;
    while (!rest.empty()) {
        std::size_t length = 0;
        if (rest.size() < kLengthBytes) {
            return {};
        }
        for (const std::byte byte : rest.first(kLengthBytes)) {
            length = length * 256 + std::to_integer<std::size_t>(byte);
        }
        if (rest.size() - kLengthBytes < length) {
            return {};
        }
        const auto unit = rest.subspan(kLengthBytes, length);
        units.emplace_back(unit.begin(), unit.end());
        rest = rest.subspan(kLengthBytes + length);
    }
    return units;
}

H264Decoder::H264Decoder(const std::vector<std::byte>& decoderConfig)
    : m_parameterSets(ParameterSets(decoderConfig)),
      m_library(LoadLibraryW(H264Library::DefaultPath().c_str())) {
    ISVCDecoder* decoder = nullptr;
    Find<long (*)(ISVCDecoder**)>(m_library.Get(), "WelsCreateDecoder")(&decoder);
    m_decoder = std::unique_ptr<ISVCDecoder, Deleter>(
        decoder, {Find<void (*)(ISVCDecoder*)>(m_library.Get(), "WelsDestroyDecoder")});
    SDecodingParam parameters = {};
    parameters.eEcActiveIdc = ERROR_CON_DISABLE;
    parameters.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_AVC;
    m_decoder->Initialize(&parameters);
}

std::optional<Samples> H264Decoder::Decode(const Packet& packet) {
    std::vector<std::byte> stream;
    if (packet.isKey) {
        stream = m_parameterSets;
    }
    for (const std::vector<std::byte>& unit : Units(packet)) {
        AppendUnit(stream, unit);
    }
    std::array<unsigned char*, 3> planes = {};
    SBufferInfo info = {};
    if (m_decoder->DecodeFrameNoDelay(reinterpret_cast<const unsigned char*>(stream.data()),
                                      static_cast<int>(stream.size()), planes.data(), &info) != dsErrorFree) {
        return std::nullopt;
    }
    // The decoder keeps the newest picture back, as if a later one could have to be shown before it.
    if (info.iBufferStatus != 1 && m_decoder->FlushFrame(planes.data(), &info) != dsErrorFree) {
        return std::nullopt;
    }
    if (info.iBufferStatus != 1) {
        return std::nullopt;
    }
    const SSysMEMBuffer& buffer = info.UsrData.sSystemBuffer;
    const auto width = static_cast<std::uint32_t>(buffer.iWidth);
    const auto height = static_cast<std::uint32_t>(buffer.iHeight);
    return Samples{width, height, Plane(planes[0], buffer.iStride[0], width, height),
                   Plane(planes[1], buffer.iStride[1], width / 2, height / 2),
                   Plane(planes[2], buffer.iStride[1], width / 2, height / 2)};
}

} // namespace kxvcr::test
