/**
 * @file
 * Owner of the narrow copies that the utility library hands out.
 */
#pragma once

#include "sdk/util/text.h"

#include <cstdlib>
#include <memory>

namespace kx {

/** A narrow copy of a wide text, made by DE::WcharToChar and freed with its owner. */
class NarrowText {
public:
    explicit NarrowText(const wchar_t* text) : m_block(DE::WcharToChar(text)) {}

    /** Whether the text could be converted. */
    explicit operator bool() const noexcept { return m_block != nullptr; }

    /** The copy, which lives as long as this object; null when the text could not be converted. */
    const char* Get() const noexcept { return m_block.get(); }

private:
    struct Free {
        void operator()(char* block) const noexcept { std::free(block); }
    };
    std::unique_ptr<char, Free> m_block;
};

} // namespace kx
