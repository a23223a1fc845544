/**
 * @file
 * How the values of a diagnostic message become wide text; both diagnostic channels write through it.
 */
#pragma once

#include <concepts>
#include <ios>
#include <ostream>
#include <string>
#include <string_view>

namespace kx::messagetext {

/**
 * Lets a stream throw while this lives. A stream that finds no memory keeps that to itself otherwise, ignores what
 * follows, and hands out a message that is cut in the middle.
 */
class ThrowingStream {
public:
    explicit ThrowingStream(std::wostream& stream) : m_stream(stream), m_former(stream.exceptions()) {
        stream.exceptions(std::ios::badbit);
    }
    ~ThrowingStream() {
        m_stream.clear(); // or a failure would be thrown once more here
        m_stream.exceptions(m_former);
    }
    ThrowingStream(const ThrowingStream&) = delete;
    ThrowingStream& operator=(const ThrowingStream&) = delete;

private:
    std::wostream& m_stream;
    std::ios::iostate m_former;
};

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

/** The whole message or an exception: values one after the other with nothing between them, then the function's name in
 * parentheses. */
template <class... Values>
void AppendMessage(std::wostream& stream, std::string_view function, const Values&... values) {
    const ThrowingStream throwing(stream);
    (Append(stream, values), ...);
    stream << L'(';
    Append(stream, function);
    stream << L')';
}

} // namespace kx::messagetext
