// What is kept for a replay becomes the beginning of a file: the switch and everything up to the finished file, beside
// writing the same bytes to the same disk.
#include "benchmarks/pairs.h"
#include "worker/file/fileformat.h"
#include "worker/file/filesink.h"
#include "worker/packethub.h"

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <span>
#include <vector>

namespace kxvcr {

namespace {

using bench::Goal;
using bench::Require;
using bench::Timed;

constexpr std::uint32_t kFramesPerSecond = 30;
constexpr std::uint64_t kKeyInterval = 2 * kFramesPerSecond;
constexpr std::size_t kKeyBytes = 60'000;
constexpr std::size_t kOtherBytes = 4'000;

std::filesystem::path FilePath() {
    return std::filesystem::temp_directory_path() / "replay_benchmark.mp4";
}

/** The packets of so many seconds, of ordinary size or smaller; the screen changes in every slot. */
std::vector<SharedPacket> PacketsOf(std::uint64_t seconds, std::size_t divisor = 1) {
    std::vector<SharedPacket> packets;
    for (std::uint64_t slot = 0; slot < seconds * kFramesPerSecond; ++slot) {
        auto packet = std::make_shared<Packet>();
        packet->isKey = slot % kKeyInterval == 0;
        packet->time = SlotTime(slot, kFramesPerSecond);
        packet->bytes.resize((packet->isKey ? kKeyBytes : kOtherBytes) / divisor, static_cast<std::byte>(slot));
        packets.push_back(std::move(packet));
    }
    return packets;
}

double SwitchToFile(const std::vector<SharedPacket>& packets) {
    PacketHub hub;
    hub.KeepReplay(std::chrono::hours(1), kReplayMemoryLimit);
    for (const SharedPacket& packet : packets) {
        Require(hub.Add(packet), "a packet is refused");
    }
    const MediaTime end = SlotTime(packets.size(), kFramesPerSecond);
    return Timed(1, [&] {
        const MediaTime start = hub.HoldReplay(end);
        std::unique_ptr<OutputFile> file = DiskFile::Create(FilePath().wstring());
        Require(file != nullptr, "no file");
        const PictureFormat format{
            Codec::H264, 1280, 720, kFramesPerSecond, ColorMatrix::Bt709, std::vector<std::byte>(40)};
        std::unique_ptr<MediaWriter> writer = CreateWriter(FileFormat::Mp4, *file, {format, {}}, start);
        Require(writer != nullptr, "no writer");
        const auto sink =
            std::make_shared<FileSink>(std::move(file), std::move(writer), start, 2 * kReplayMemoryLimit,
                                       FileSinkOwner{[end] { return end; }, [](const FileProgress&) {}, [] {}});
        Require(sink->Start() && hub.SwitchTo(sink, start), "the sink does not start");
        hub.Finish(end);
        Require(!sink->CutShort(), "the file is cut short");
    });
}

std::vector<std::byte> BytesOfFile() {
    std::vector<std::byte> bytes(static_cast<std::size_t>(std::filesystem::file_size(FilePath())));
    std::ifstream file(FilePath(), std::ios::binary);
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    Require(file.good(), "the file cannot be read");
    return bytes;
}

// The very bytes, from where they lie in memory: a block that is written again and again would be read from the
// processor's cache.
double WriteBare(const std::vector<std::byte>& bytes) {
    constexpr std::size_t kBlockBytes = std::size_t{1} << 20;
    return Timed(1, [&] {
        std::unique_ptr<OutputFile> file = DiskFile::Create(FilePath().wstring());
        Require(file != nullptr, "no file");
        for (std::size_t offset = 0; offset < bytes.size(); offset += kBlockBytes) {
            const std::size_t count = std::min(kBlockBytes, bytes.size() - offset);
            Require(file->WriteAt(offset, std::span(bytes).subspan(offset, count)), "a write fails");
        }
        Require(file->Flush(), "the flush fails");
    });
}

void MeasureSwitch(bench::Runner& runner) {
    constexpr std::uint64_t kSeconds = 300;
    const std::vector<SharedPacket> packets = PacketsOf(kSeconds);
    SwitchToFile(packets);
    const std::vector<std::byte> bytes = BytesOfFile();
    runner.Measure({"switch to a file with 300 s kept, finished",
                    "the same bytes written to the same disk, and one wait for it", Goal::Times(1.1),
                    [&] { return SwitchToFile(packets); }, [&] { return WriteBare(bytes); }});
}

} // namespace

} // namespace kxvcr

int main(int argc, char** argv) {
    return bench::Run(argc, argv, [](bench::Runner& runner) {
        if (runner.WantsGrowth()) {
            constexpr std::size_t kDivisor = 3; // the longest replay fits into the memory that one may take
            runner.Grow("Replay becomes a file", "seconds", {1, 60, 300, 600, 900, 1200, 1500, 1800},
                        [](double seconds) {
                            return kxvcr::SwitchToFile(kxvcr::PacketsOf(static_cast<std::uint64_t>(seconds), kDivisor));
                        });
        } else {
            kxvcr::MeasureSwitch(runner);
        }
        std::filesystem::remove(kxvcr::FilePath());
    });
}
