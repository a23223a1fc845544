// The verification of a file against the manifest: the digest of a large file, and the walk through large manifests.
#include "benchmarks/pairs.h"
#include "benchmarks/sha256.h"
#include "common/win/modulepath.h"
#include "sdk/util/file.h"
#include "systemenvironment.h"

#include <tinyxml2.h>
#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

using bench::Goal;
using bench::Require;
using bench::Timed;

constexpr double kMebibyte = 1024.0 * 1024;
constexpr char kFileName[] = "verified.bin";

std::filesystem::path HostFolder() {
    return kx::ModuleFolder(nullptr).value();
}

std::filesystem::path FilePath() {
    return HostFolder() / kFileName;
}

std::filesystem::path ManifestPath() {
    return HostFolder() / "config" / "CheckFileIntergrity.xml";
}

void WriteFileOf(double bytes) {
    constexpr std::size_t kBlockBytes = std::size_t{1} << 20;
    std::string block(kBlockBytes, '\0');
    std::uint32_t random = 1;
    for (char& byte : block) {
        random = random * 1664525 + 1013904223;
        byte = static_cast<char>(random >> 24);
    }
    std::ofstream file(FilePath(), std::ios::binary);
    for (auto left = static_cast<std::size_t>(bytes); left != 0;) {
        const std::size_t size = std::min(left, block.size());
        file.write(block.data(), static_cast<std::streamsize>(size));
        left -= size;
    }
    Require(file.good(), "the file cannot be written");
}

// The file's own entry is the last one, so that all of them are walked through.
void WriteManifestOf(std::size_t entries) {
    std::filesystem::create_directories(ManifestPath().parent_path());
    std::ofstream file(ManifestPath(), std::ios::binary);
    file << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Files>\n";
    const std::string otherDigest(64, 'a');
    for (std::size_t i = 1; i < entries; ++i) {
        file << "  <FileAttributes Path=\"plugins\\module" << 100'000 + i << ".dll\" Sha256=\"" << otherDigest
             << "\"/>\n";
    }
    file << "  <FileAttributes Path=\"" << kFileName << "\" Sha256=\"" << DE::GetFileSha256Hex(FilePath().string())
         << "\"/>\n</Files>\n";
    Require(file.good(), "the manifest cannot be written");
}

double Check() {
    return Timed(1, [] { Require(SystemEnvironment::CompareFileIntergrity(kFileName), "the file is not verified"); });
}

double ParseManifest() {
    const std::string path = ManifestPath().string();
    return Timed(1, [&] {
        tinyxml2::XMLDocument document;
        Require(document.LoadFile(path.c_str()) == tinyxml2::XML_SUCCESS, "the manifest cannot be parsed");
    });
}

double HashFile(std::vector<std::uint8_t> (*digest)(const std::wstring&)) {
    const std::wstring path = FilePath().wstring();
    return Timed(1, [&] { Require(!digest(path).empty(), "the file has no digest"); });
}

void MeasureDigest(bench::Runner& runner) {
    WriteFileOf(64 * kMebibyte);
    WriteManifestOf(1);
    runner.Measure({"integrity check of 64 MiB", "reading the file and the fastest SHA-256", Goal::Times(1.03), Check,
                    [] { return HashFile(bench::Sha256OfFile); }});
    runner.Measure({"SHA-256 of 64 MiB by Windows' library", "reading the file and the fastest SHA-256", Goal::None(),
                    [] { return HashFile(bench::Sha256OfFileByWindows); },
                    [] { return HashFile(bench::Sha256OfFile); }});
}

void MeasureManifests(bench::Runner& runner) {
    WriteFileOf(1000);
    for (const std::size_t entries : {std::size_t{10'000}, std::size_t{60'000}}) {
        WriteManifestOf(entries);
        runner.Measure({"integrity check, " + std::to_string(entries) + " manifest entries",
                        "the parser alone on the same manifest", Goal::Times(1.2), Check, ParseManifest});
    }
}

void Grow(bench::Runner& runner) {
    WriteFileOf(1000);
    runner.Grow("Integrity check by manifest entries", "entries",
                {10, 100, 1000, 10'000, 20'000, 40'000, 60'000, 80'000, 100'000}, [](double entries) {
                    WriteManifestOf(static_cast<std::size_t>(entries));
                    return Check();
                });
    WriteFileOf(1000);
    runner.Grow("Integrity check by file size", "MiB", {1, 16, 64, 128, 256, 512, 768, 1024}, [](double size) {
        if (std::filesystem::file_size(FilePath()) != static_cast<std::uintmax_t>(size * kMebibyte)) {
            WriteFileOf(size * kMebibyte);
            WriteManifestOf(1);
        }
        return Check();
    });
}

} // namespace

int main(int argc, char** argv) {
    return bench::Run(argc, argv, [](bench::Runner& runner) {
        if (runner.WantsGrowth()) {
            Grow(runner);
        } else {
            MeasureDigest(runner);
            MeasureManifests(runner);
        }
        std::filesystem::remove(FilePath());
        std::filesystem::remove(ManifestPath());
    });
}
