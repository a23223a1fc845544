// Where two pictures differ. Rows are compared in blocks of words that the compiler turns into vector instructions: the
// C run-time's comparison looks for the first different byte, which costs it several times as much.
#include "worker/capture/difference.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kxvcr {

namespace {

constexpr std::size_t kBlockWords = 64;

bool SameBytes(const std::byte* a, const std::byte* b, std::size_t size) noexcept {
    std::size_t offset = 0;
    for (; offset + kBlockWords * sizeof(std::uint64_t) <= size; offset += kBlockWords * sizeof(std::uint64_t)) {
        std::uint64_t different = 0;
        for (std::size_t i = 0; i < kBlockWords; ++i) {
            std::uint64_t wordOfA = 0;
            std::uint64_t wordOfB = 0;
            std::memcpy(&wordOfA, a + offset + i * sizeof(wordOfA), sizeof(wordOfA));
            std::memcpy(&wordOfB, b + offset + i * sizeof(wordOfB), sizeof(wordOfB));
            different |= wordOfA ^ wordOfB;
        }
        if (different != 0) {
            return false;
        }
    }
    return std::memcmp(a + offset, b + offset, size - offset) == 0;
}

} // namespace

std::optional<PictureRect> DifferentRows(const PictureBuffer& before, const PictureBuffer& after) noexcept {
    const std::size_t stride = after.Stride();
    const auto sameRow = [&](std::uint32_t row) {
        return SameBytes(before.Pixels().data() + row * stride, after.Pixels().data() + row * stride, stride);
    };
    std::uint32_t first = 0;
    while (first < after.Height() && sameRow(first)) {
        ++first;
    }
    if (first == after.Height()) {
        return std::nullopt;
    }
    std::uint32_t last = after.Height() - 1;
    while (last > first && sameRow(last)) {
        --last;
    }
    return PictureRect{0, first, after.Width(), last - first + 1};
}

} // namespace kxvcr
