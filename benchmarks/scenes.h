/**
 * @file
 * What people record: six kinds of screen content, each drawn alike in every run.
 */
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string_view>

namespace kxvcr::bench {

/** Moving content. Pictures are drawn in order, each into the block that holds the one before. */
class Scene {
public:
    virtual ~Scene() = default;

    virtual SIZE Size() const noexcept = 0;

    /**
     * Draws picture @p number over the one before.
     * @param dc of a bitmap of Size(), empty for the first picture
     * @param pixels of that bitmap: rows from top to bottom without gaps, four bytes (blue, green, red, unused) a pixel
     */
    virtual void Draw(std::uint32_t number, HDC dc, std::uint32_t* pixels) = 0;
};

/** @param name terminal, web, windows, typing, typing4k, mix, motion or still; null for another */
std::unique_ptr<Scene> MakeScene(std::string_view name);

} // namespace kxvcr::bench
