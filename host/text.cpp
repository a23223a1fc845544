// Texts between UTF-16 and UTF-8, and sizes.
#include "host/text.h"

#include <windows.h>

#include <cwchar>
#include <iterator>

namespace kxrecord {

std::string Utf8FromWide(std::wstring_view text) {
    const int length = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, utf8.data(), size, nullptr, nullptr);
    return utf8;
}

std::wstring WideFromUtf8(std::string_view text) {
    const int size = static_cast<int>(text.size());
    const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), length);
    return wide;
}

std::wstring Printable(std::wstring_view text) {
    constexpr wchar_t kDigits[] = L"0123456789abcdef";
    std::wstring printable;
    for (const wchar_t character : text) {
        if (character >= 0x20 && (character < 0x7f || character > 0x9f)) {
            printable += character;
            continue;
        }
        printable += L"\\x";
        printable += kDigits[character >> 4];
        printable += kDigits[character & 15];
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
