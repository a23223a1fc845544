// Conversions between wide and narrow text, trimming, lower case and random names.
#include "sdk/util/text.h"

#include <windows.h>
// bcrypt.h needs the types of windows.h.
#include <bcrypt.h>

#include <array>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <string_view>

namespace DE {

namespace {

// The Windows conversions count in int.
bool IsConvertible(size_t length) {
    return length > 0 && length <= std::numeric_limits<int>::max();
}

} // namespace

char* WcharToChar(const wchar_t* text) {
    if (text == nullptr) {
        return nullptr;
    }
    const int size = WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0) {
        return nullptr;
    }
    std::unique_ptr<void, decltype(&std::free)> block(std::malloc(static_cast<size_t>(size)), &std::free);
    if (!block) {
        throw std::bad_alloc();
    }
    if (WideCharToMultiByte(CP_ACP, 0, text, -1, static_cast<char*>(block.get()), size, nullptr, nullptr) == 0) {
        return nullptr;
    }
    return static_cast<char*>(block.release());
}

std::string UnicodeToANSI(const std::wstring& text) {
    if (!IsConvertible(text.size())) {
        return {};
    }
    const int length = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(CP_ACP, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    if (size <= 0) {
        return {};
    }
    std::string narrow(static_cast<size_t>(size), '\0');
    if (WideCharToMultiByte(CP_ACP, 0, text.data(), length, narrow.data(), size, nullptr, nullptr) != size) {
        return {};
    }
    return narrow;
}

std::wstring ANSIToUnicode(const std::string& text) {
    if (!IsConvertible(text.size())) {
        return {};
    }
    const int length = static_cast<int>(text.size());
    const int size = MultiByteToWideChar(CP_ACP, 0, text.data(), length, nullptr, 0);
    if (size <= 0) {
        return {};
    }
    std::wstring wide(static_cast<size_t>(size), L'\0');
    if (MultiByteToWideChar(CP_ACP, 0, text.data(), length, wide.data(), size) != size) {
        return {};
    }
    return wide;
}

std::string TrimSP(const std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::string LowerCase(const std::string& text) {
    std::string lower = text;
    for (char& character : lower) {
        if (character >= 'A' && character <= 'Z') {
            character = static_cast<char>(character - 'A' + 'a');
        }
    }
    return lower;
}

std::string GetRandomString(int length) {
    constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    // Bytes from here on would make the first letters of the alphabet likelier than the others.
    constexpr size_t kFairBytes = 256 / kAlphabet.size() * kAlphabet.size();

    std::string random;
    const size_t wanted = length > 0 ? static_cast<size_t>(length) : 0;
    random.reserve(wanted);
    std::array<unsigned char, 64> bytes{};
    while (random.size() < wanted) {
        if (BCryptGenRandom(nullptr, bytes.data(), static_cast<ULONG>(bytes.size()), BCRYPT_USE_SYSTEM_PREFERRED_RNG) <
            0) {
            return {};
        }
        for (const unsigned char byte : bytes) {
            if (byte < kFairBytes && random.size() < wanted) {
                random.push_back(kAlphabet[byte % kAlphabet.size()]);
            }
        }
    }
    return random;
}

} // namespace DE
