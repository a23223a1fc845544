/**
 * @file
 * Doubles for the pieces of the pipeline: a screen that shows a number, an encoder whose packets hold it, and a sink
 * that keeps them.
 */
#pragma once

#include "worker/capture/picturesource.h"
#include "worker/packet.h"
#include "worker/video/videoencoder.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <span>
#include <utility>
#include <vector>

namespace kxtest {

inline constexpr std::uint32_t kNumberWidth = 4;
inline constexpr std::uint32_t kNumberHeight = 2;

/** The number that a picture of NumberSource, or a packet of NumberEncoder, holds in its first bytes. */
inline std::uint32_t NumberIn(std::span<const std::byte> bytes) {
    std::uint32_t number = 0;
    std::memcpy(&number, bytes.data(), sizeof(number));
    return number;
}

/** A packet that holds a number. */
inline kxvcr::SharedPacket NumberPacket(std::uint32_t number, kxvcr::MediaTime time, bool isKey,
                                        std::size_t size = sizeof(std::uint32_t)) {
    auto packet = std::make_shared<kxvcr::Packet>();
    packet->isKey = isKey;
    packet->time = time;
    packet->bytes.resize(size);
    std::memcpy(packet->bytes.data(), &number, sizeof(number));
    return packet;
}

/** Shows what onLook says: a number, or that the screen cannot be read when it is negative. */
class NumberSource final : public kxvcr::PictureSource {
public:
    explicit NumberSource(std::function<int(int look)> onLook) : m_onLook(std::move(onLook)) {}

    kxvcr::Grab Take(kxvcr::Picture& target, const kxvcr::Picture* before) noexcept override {
        const int number = m_onLook(++m_looks);
        if (number < 0) {
            return kxvcr::Grab::Failed;
        }
        target.changed.assign(before == nullptr ? 0 : 1, kxvcr::PictureRect{0, 0, 1, 1});
        std::memcpy(target.buffer.Pixels().data(), &number, sizeof(number));
        const bool same = before != nullptr && NumberIn(before->buffer.Pixels()) == static_cast<std::uint32_t>(number);
        return same ? kxvcr::Grab::Unchanged : kxvcr::Grab::Changed;
    }

private:
    std::function<int(int look)> m_onLook;
    int m_looks = 0;
};

/** Makes packets that hold the picture's number. Fails, or has no memory, for the calls it is told. */
class NumberEncoder final : public kxvcr::VideoEncoder {
public:
    const kxvcr::PictureFormat& Format() const noexcept override { return m_format; }

    kxvcr::SharedPacket Encode(const kxvcr::PictureView& picture, kxvcr::MediaTime time, bool key) override {
        times.push_back(time);
        keys.push_back(key);
        changes.push_back(picture.changed.size());
        onEncode(time);
        const auto call = static_cast<int>(times.size());
        if (noMemoryIn.contains(call)) {
            throw std::bad_alloc();
        }
        if (failsIn.contains(call) || alwaysFails) {
            return nullptr;
        }
        auto packet = std::make_shared<kxvcr::Packet>();
        packet->isKey = key;
        packet->time = time;
        packet->captured = picture.captured;
        packet->bytes.assign(picture.pixels.begin(), picture.pixels.begin() + sizeof(std::uint32_t));
        return packet;
    }
    void SetEffort(kxvcr::Effort effort) noexcept override { efforts.push_back(effort); }
    void SetKeyInterval(kxvcr::MediaTime) noexcept override {}

    std::set<int> failsIn;
    std::set<int> noMemoryIn;
    bool alwaysFails = false;
    std::function<void(kxvcr::MediaTime)> onEncode = [](kxvcr::MediaTime) {};
    std::vector<kxvcr::MediaTime> times;
    std::vector<bool> keys;
    std::vector<std::size_t> changes; ///< how many rectangles each picture says have changed; 0: all may have
    std::vector<kxvcr::Effort> efforts;

private:
    kxvcr::PictureFormat m_format{kxvcr::Codec::H264, kNumberWidth, kNumberHeight, 30, kxvcr::ColorMatrix::Bt601, {}};
};

/** Keeps what it is given. */
class KeepingSink final : public kxvcr::PacketSink {
public:
    bool Add(const kxvcr::SharedPacket& packet) override {
        const std::lock_guard lock(m_mutex);
        if (noMemoryFor != 0 && m_packets.size() + 1 == noMemoryFor) {
            noMemoryFor = 0;
            throw std::bad_alloc();
        }
        m_packets.push_back(packet);
        return true;
    }
    void Finish(kxvcr::MediaTime end) override { ends.push_back(end); }

    std::vector<kxvcr::SharedPacket> Packets() const {
        const std::lock_guard lock(m_mutex);
        return m_packets;
    }
    std::vector<std::uint32_t> Numbers() const {
        std::vector<std::uint32_t> numbers;
        for (const kxvcr::SharedPacket& packet : Packets()) {
            numbers.push_back(NumberIn(packet->bytes));
        }
        return numbers;
    }

    std::vector<kxvcr::MediaTime> ends;
    std::size_t noMemoryFor = 0; ///< the packet, counted from 1, for which there is no memory once

private:
    mutable std::mutex m_mutex;
    std::vector<kxvcr::SharedPacket> m_packets;
};

} // namespace kxtest
