// Texts as the host prints them.
#include "host/text.h"

#include "common/hex.h"

#include <cwchar>
#include <iterator>

namespace kxrecord {

std::wstring Printable(std::wstring_view text) {
    std::wstring printable;
    for (const wchar_t character : text) {
        if (character >= 0x20 && (character < 0x7f || character > 0x9f)) {
            printable += character;
            continue;
        }
        printable += L"\\x";
        kx::AppendHex(printable, static_cast<std::uint8_t>(character)); // all of them lie below 0x100
    }
    return printable;
}

std::wstring SizeText(std::uint64_t bytes) {
    constexpr double kMegabyte = 1024.0 * 1024.0;
    constexpr double kGigabyte = 1024.0 * kMegabyte;
    const auto size = static_cast<double>(bytes);
    wchar_t text[40] = {};
    static_cast<void>(std::swprintf(text, std::size(text), size < kGigabyte ? L"%.1f MB" : L"%.1f GB",
                                    size / (size < kGigabyte ? kMegabyte : kGigabyte)));
    return text;
}

} // namespace kxrecord
