// Writes two seconds of sound with the worker's encoders, in the format of the file's name, with one click after a
// second, so that other programs can be asked where they hear it. The one picture is no real one.
// Usage: soundwriter.exe FILE
#include "worker/file/fileformat.h"
#include "worker/sound/makesoundencoder.h"

#include "common/win/utf8.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <memory>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

namespace kxvcr {

namespace {

constexpr std::int64_t kClickFrames = kSoundRate / 200;

float SampleAt(std::int64_t frame) {
    const std::int64_t since = frame - std::int64_t{kSoundRate};
    const bool isClick = since >= 0 && since < kClickFrames;
    return isClick ? static_cast<float>(0.8 *
                                        std::sin(2 * std::numbers::pi * 3000 * static_cast<double>(since) / kSoundRate))
                   : 0.0F;
}

SharedPacket Picture() {
    auto packet = std::make_shared<Packet>();
    packet->isKey = true;
    packet->bytes.resize(8);
    return packet;
}

// Two seconds of sound beside one picture, in the format that the file's name asks for.
bool WriteSound(const std::wstring& path) {
    const std::optional<FileFormat> format = FormatOfPath(path);
    const std::unique_ptr<DiskFile> file = DiskFile::Create(path);
    if (!format || file == nullptr) {
        return false;
    }
    StreamFormat streams;
    streams.picture = {RowOf(*format).picture, 64, 64, 30, ColorMatrix::Bt601, {}};
    const std::unique_ptr<SoundEncoder> encoder = MakeSoundEncoder(streams.picture.codec);
    streams.sound = encoder->Format();
    const std::unique_ptr<MediaWriter> writer = CreateWriter(*format, *file, streams, {});
    if (writer == nullptr || !writer->Add(Picture())) {
        return false;
    }
    const std::int64_t length = streams.sound->samplesPerPacket;
    for (std::int64_t first = 0; first < 2 * std::int64_t{kSoundRate}; first += length) {
        std::vector<float> samples;
        for (std::int64_t frame = first; frame < first + length; ++frame) {
            samples.insert(samples.end(), kSoundChannels, SampleAt(frame));
        }
        if (!writer->Add(encoder->Encode(samples, first))) {
            return false;
        }
    }
    writer->Finish(std::chrono::seconds(2));
    return true;
}

} // namespace

} // namespace kxvcr

int main(int count, char** texts) {
    if (count != 2) {
        return 2;
    }
    return kxvcr::WriteSound(kx::WideFromUtf8(texts[1])) ? 0 : 1;
}
