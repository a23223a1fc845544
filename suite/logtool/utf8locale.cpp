// UTF-16 into UTF-8, as a stream's conversion.

#include "utf8locale.h"

#include <log4cplus/spi/factory.h>

#include <cstdint>
#include <cstring>
#include <cwchar>
#include <locale>
#include <memory>
#include <string>

namespace logtool {

namespace {

constexpr char32_t kReplacement = 0xFFFD; // stands for half a pair of surrogates
constexpr int kMostBytes = 6;             // of one unit: the replacement of the one before it, and its own three

constexpr bool IsHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool IsLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

std::size_t Encode(char32_t character, char* bytes) {
    const auto tail = [character](int shift) { return static_cast<char>(0x80 | ((character >> shift) & 0x3F)); };
    if (character < 0x80) {
        bytes[0] = static_cast<char>(character);
        return 1;
    }
    if (character < 0x800) {
        bytes[0] = static_cast<char>(0xC0 | (character >> 6));
        bytes[1] = tail(0);
        return 2;
    }
    if (character < 0x10000) {
        bytes[0] = static_cast<char>(0xE0 | (character >> 12));
        bytes[1] = tail(6);
        bytes[2] = tail(0);
        return 3;
    }
    bytes[0] = static_cast<char>(0xF0 | (character >> 18));
    bytes[1] = tail(12);
    bytes[2] = tail(6);
    bytes[3] = tail(0);
    return 4;
}

/** Only for writing. A stream hands on its text in pieces: the state keeps the first half of a pair between two. */
class Utf8Conversion final : public std::codecvt<wchar_t, char, std::mbstate_t> {
protected:
    result do_out(std::mbstate_t& state, const wchar_t* from, const wchar_t* fromEnd, const wchar_t*& fromNext,
                  char* to, char* toEnd, char*& toNext) const override {
        for (fromNext = from, toNext = to; fromNext != fromEnd; ++fromNext) {
            if (toEnd - toNext < kMostBytes) {
                return partial;
            }
            const auto unit = static_cast<char16_t>(*fromNext);
            const char16_t first = Exchange(state, 0);
            if (first != 0 && IsLowSurrogate(unit)) {
                const char32_t high = first - 0xD800u;
                toNext += Encode(0x10000 + (high << 10) + (unit - 0xDC00u), toNext);
                continue;
            }
            if (first != 0) {
                toNext += Encode(kReplacement, toNext);
            }
            if (IsHighSurrogate(unit)) {
                Exchange(state, unit);
            } else {
                toNext += Encode(IsLowSurrogate(unit) ? kReplacement : unit, toNext);
            }
        }
        return ok;
    }

    result do_unshift(std::mbstate_t& state, char* to, char* toEnd, char*& toNext) const override {
        toNext = to;
        if (toEnd - to < kMostBytes) {
            return partial;
        }
        if (Exchange(state, 0) != 0) {
            toNext += Encode(kReplacement, to);
        }
        return ok;
    }

    result do_in(std::mbstate_t&, const char* from, const char*, const char*& fromNext, wchar_t* to, wchar_t*,
                 wchar_t*& toNext) const override {
        fromNext = from;
        toNext = to;
        return error;
    }

    int do_length(std::mbstate_t&, const char*, const char*, std::size_t) const override { return 0; }
    int do_encoding() const noexcept override { return 0; } // lengths differ
    int do_max_length() const noexcept override { return kMostBytes; }
    bool do_always_noconv() const noexcept override { return false; }

private:
    static char16_t Exchange(std::mbstate_t& state, char16_t unit) {
        static_assert(sizeof(state) >= sizeof(unit));
        char16_t former = 0;
        std::memcpy(&former, &state, sizeof(former));
        std::memcpy(&state, &unit, sizeof(unit));
        return former;
    }
};

class Utf8LocaleFactory final : public log4cplus::spi::LocaleFactory {
public:
    std::locale createObject(const log4cplus::helpers::Properties&) override {
        return {std::locale::classic(), new Utf8Conversion}; // the locale owns it
    }
    const log4cplus::tstring& getTypeName() const override { return m_name; }

private:
    log4cplus::tstring m_name = kUtf8LocaleName;
};

} // namespace

void RegisterUtf8Locale() {
    log4cplus::spi::getLocaleFactoryRegistry().put(std::make_unique<Utf8LocaleFactory>());
}

} // namespace logtool
