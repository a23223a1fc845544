/**
 * @file
 * One row of the memory matrix: a function of ScreenRecordProxy.dll, called with every allocation that it reaches
 * failing, once and from there on.
 *
 * After each such call the answer is the failure value or the right one, what the registry holds is what it held before
 * or what a call with memory writes, every debugger line is one that a call with memory sends, no block is left over,
 * and the next call answers as if nothing had been.
 */
#pragma once

#include "support/importpatch.h"
#include "support/memoryfault.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace memorymatrix {

/** Keeps debugger lines without asking for memory: it works while there is none. */
class FixedLines {
public:
    void Clear() { m_count = 0; }
    std::vector<std::wstring> Lines() const;

private:
    static constexpr std::size_t kMaxLines = 32;
    static constexpr std::size_t kMaxLength = 512;

    void Keep(const wchar_t* line);

    std::array<std::array<wchar_t, kMaxLength>, kMaxLines> m_lines{};
    std::size_t m_count = 0;
    kxtest::ImportHook<"KERNEL32.dll", "OutputDebugStringW", decltype(OutputDebugStringW)> m_hook{
        [this](LPCWSTR line) { Keep(line); }};
};

/** Every value below HKEY_LOCAL_MACHINE and HKEY_USERS of this process, by its path; the bytes with their type. */
using Registry = std::map<std::wstring, std::string>;
Registry ReadRegistry();

/** What an attempt came to. */
enum class Outcome { Failed, Worked, Neither };

/** A function under test. */
struct Function {
    std::string name;                           ///< as it is exported, without its parameters
    std::function<void()> arrange;              ///< makes the registry and the files what they are before a call
    bool writes = false;                        ///< whether a call needs the arrangement afresh
    std::function<Outcome()> call;              ///< calls it and judges the answer; asks for no memory itself
    std::vector<std::wstring> linesOfFailure{}; ///< what it may send besides when memory runs out
};

/** Compares an answer of @p call with the right one and the failure value. */
template <class Answer, class Call>
std::function<Outcome()> Judged(Answer right, Answer failure, Call call) {
    return [right = std::move(right), failure = std::move(failure), call = std::move(call)] {
        const Answer answer = call();
        if (answer == right) {
            return Outcome::Worked;
        }
        return answer == failure ? Outcome::Failed : Outcome::Neither;
    };
}

/** The attempts that a matrix made. */
struct Count {
    std::size_t functions = 0;
    std::size_t allocations = 0; ///< the n's: the sum of what each function asks for
    std::size_t attempts = 0;
};

/** Runs one row and reports what it finds as failures of the running test. */
void Run(const Function& function, kxtest::MemoryFault& memory, FixedLines& lines, Count& count);

} // namespace memorymatrix
