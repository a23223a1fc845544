// Feeds packets to the worker's writers as a script says, so that files can be tested with other programs' packets.
// Usage: filewriter.exe SCRIPT PACKETS FILE. The script's lines, with times in 100 ns and configurations in
// hexadecimal:
//   picture CODEC WIDTH HEIGHT RATE MATRIX CONFIG
//   sound CODEC RATE CHANNELS SAMPLES DELAY CONFIG
//   open START            the formats are known
//   packet STREAM KEY TIME SIZE    the next SIZE bytes of PACKETS
//   flush UNTIL
//   finish END            without it, the file is left as it is
// FILE.log has every write: offset and size in eight little-endian bytes each, then the bytes.
#include "worker/file/fileformat.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

namespace kxvcr {

namespace {

std::vector<std::byte> FromHex(const std::string& text) {
    std::vector<std::byte> bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        bytes.push_back(static_cast<std::byte>(std::stoul(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

Codec CodecNamed(const std::string& name) {
    if (name == "h264") {
        return Codec::H264;
    }
    if (name == "vp9") {
        return Codec::Vp9;
    }
    return name == "aac" ? Codec::AacLc : Codec::Opus;
}

// A file on disk that keeps a log of its writes, so that a test can stop the writing at any byte.
class LoggedFile final : public OutputFile {
public:
    LoggedFile(std::unique_ptr<DiskFile> file, const std::string& log)
        : m_file(std::move(file)),
          m_log(log, std::ios::binary) {}

    bool WriteAt(std::uint64_t offset, std::span<const std::byte> bytes) override {
        const std::uint64_t head[] = {offset, bytes.size()};
        m_log.write(reinterpret_cast<const char*>(head), sizeof(head));
        m_log.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return m_file->WriteAt(offset, bytes);
    }
    bool Truncate(std::uint64_t size) override { return m_file->Truncate(size); }
    bool Flush() override { return m_file->Flush(); }
    void Discard() noexcept override { m_file->Discard(); }

private:
    std::unique_ptr<DiskFile> m_file;
    std::ofstream m_log;
};

class Script {
public:
    Script(const std::string& packets, std::string file)
        : m_packets(packets, std::ios::binary),
          m_path(std::move(file)) {}

    bool Run(std::istream& lines) {
        std::string line;
        while (std::getline(lines, line)) {
            std::istringstream words(line);
            std::string verb;
            words >> verb;
            if (!Do(verb, words)) {
                std::cerr << "refused: " << line << '\n';
                return false;
            }
        }
        return true;
    }

private:
    static MediaTime Time(std::istream& words) {
        std::int64_t count = 0;
        words >> count;
        return MediaTime(count);
    }

    bool Do(const std::string& verb, std::istream& words) {
        if (verb == "picture") {
            ReadPicture(words);
            return true;
        }
        if (verb == "sound") {
            ReadSound(words);
            return true;
        }
        if (verb == "open") {
            return Open(Time(words));
        }
        if (verb == "packet") {
            return Add(words);
        }
        if (verb == "flush") {
            return m_writer->Flush(Time(words));
        }
        if (verb == "finish") {
            m_writer->Finish(Time(words));
            return true;
        }
        return false;
    }

    void ReadPicture(std::istream& words) {
        std::string codec;
        std::string matrix;
        std::string config;
        PictureFormat& picture = m_format.picture;
        words >> codec >> picture.width >> picture.height >> picture.framesPerSecond >> matrix >> config;
        picture.codec = CodecNamed(codec);
        picture.matrix = matrix == "bt601" ? ColorMatrix::Bt601 : ColorMatrix::Bt709;
        picture.decoderConfig = FromHex(config);
    }

    void ReadSound(std::istream& words) {
        std::string codec;
        std::string config;
        SoundFormat sound;
        words >> codec >> sound.samplesPerSecond >> sound.channels >> sound.samplesPerPacket >> sound.delaySamples >>
            config;
        sound.codec = CodecNamed(codec);
        sound.decoderConfig = FromHex(config);
        m_format.sound = sound;
    }

    bool Open(MediaTime start) {
        const std::wstring path(m_path.begin(), m_path.end());
        const auto format = FormatOfPath(path);
        auto file = DiskFile::Create(path);
        if (!format || !file) {
            return false;
        }
        m_file = std::make_unique<LoggedFile>(std::move(file), m_path + ".log");
        m_writer = CreateWriter(*format, *m_file, m_format, start);
        return m_writer != nullptr;
    }

    bool Add(std::istream& words) {
        std::string stream;
        auto packet = std::make_shared<Packet>();
        std::size_t size = 0;
        words >> stream >> packet->isKey;
        packet->stream = stream == "sound" ? Stream::Sound : Stream::Picture;
        packet->time = Time(words);
        words >> size;
        packet->bytes.resize(size);
        m_packets.read(reinterpret_cast<char*>(packet->bytes.data()), static_cast<std::streamsize>(size));
        return m_packets && m_writer->Add(packet);
    }

    std::ifstream m_packets;
    std::string m_path;
    StreamFormat m_format;
    std::unique_ptr<LoggedFile> m_file;
    std::unique_ptr<MediaWriter> m_writer;
};

} // namespace

} // namespace kxvcr

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usage: filewriter SCRIPT PACKETS FILE\n", stderr);
        return 2;
    }
    std::ifstream lines(argv[1]);
    return kxvcr::Script(argv[2], argv[3]).Run(lines) ? 0 : 1;
}
