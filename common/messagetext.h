/**
 * @file
 * How the values of a diagnostic message become wide text; both diagnostic channels write through it.
 */
#pragma once

#include <concepts>
#include <ostream>
#include <string>
#include <string_view>

namespace kx::messagetext {

/** Narrow text, widened character by character: one wide character a byte, without a code page. */
inline void Append(std::wostream& stream, std::string_view text) {
    for (const char character : text) {
        stream << static_cast<wchar_t>(static_cast<unsigned char>(character));
    }
}

inline void Append(std::wostream& stream, std::wstring_view text) {
    stream << text;
}

/** Decimal without grouping, whatever locale the host made global. */
template <std::integral Number>
void Append(std::wostream& stream, Number number) {
    stream << std::to_wstring(number); // a bool is 0 or 1
}

/** Values one after the other with nothing between them, then the function's name in parentheses. */
template <class... Values>
void AppendMessage(std::wostream& stream, std::string_view function, const Values&... values) {
    (Append(stream, values), ...);
    stream << L'(';
    Append(stream, function);
    stream << L')';
}

} // namespace kx::messagetext
