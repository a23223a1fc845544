/**
 * @file
 * Copies that check the destination's size and report an overflow as a code. The C run-time's own checked copies
 * end the process through the invalid-parameter handler instead.
 */
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace kx {

/**
 * Copies @p size bytes.
 * @param capacity bytes that the destination holds
 * @return 0; EINVAL for a null pointer, ERANGE when the bytes do not fit. On failure the destination is zeroed.
 */
inline int CopyBytes(void* destination, std::size_t capacity, const void* source, std::size_t size) noexcept {
    if (destination == nullptr) {
        return EINVAL;
    }
    if (source == nullptr || size > capacity) {
        std::memset(destination, 0, capacity);
        return source == nullptr ? EINVAL : ERANGE;
    }
    std::memcpy(destination, source, size);
    return 0;
}

/**
 * Copies a text with its terminating zero.
 * @param capacity characters that the destination holds; the text may have one fewer
 * @return 0; EINVAL for a null pointer or no capacity, ERANGE when the text does not fit. On failure the
 *         destination is an empty text.
 */
inline int CopyText(char* destination, std::size_t capacity, const char* source) noexcept {
    if (destination == nullptr || capacity == 0) {
        return EINVAL;
    }
    destination[0] = '\0';
    if (source == nullptr) {
        return EINVAL;
    }
    const std::size_t length = std::strlen(source);
    if (length >= capacity) {
        return ERANGE;
    }
    std::memcpy(destination, source, length + 1);
    return 0;
}

} // namespace kx
