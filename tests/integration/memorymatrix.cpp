// Runs one row: counts the allocations of a call, then lets each of them fail, and compares what is left behind.
#include "memorymatrix.h"

#include <algorithm>
#include <cwchar>

namespace memorymatrix {

namespace {

using kxtest::Failing;
using kxtest::MemoryFault;
using kxtest::MemoryUse;

void AddValues(HKEY root, const std::wstring& path, const std::wstring& prefix, Registry& all) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
        return;
    }
    std::array<wchar_t, 1024> name{};
    std::array<BYTE, 4096> data{};
    for (DWORD index = 0;; ++index) {
        auto nameLength = static_cast<DWORD>(name.size());
        auto dataLength = static_cast<DWORD>(data.size());
        DWORD type = 0;
        if (RegEnumValueW(key, index, name.data(), &nameLength, nullptr, &type, data.data(), &dataLength) !=
            ERROR_SUCCESS) {
            break;
        }
        all[prefix + path + L"\\" + std::wstring(name.data(), nameLength)] =
            std::to_string(type) + ":" + std::string(data.begin(), data.begin() + dataLength);
    }
    for (DWORD index = 0;; ++index) {
        auto length = static_cast<DWORD>(name.size());
        if (RegEnumKeyExW(key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
            break;
        }
        const std::wstring child(name.data(), length);
        AddValues(root, path.empty() ? child : path + L"\\" + child, prefix, all);
    }
    RegCloseKey(key);
}

/** A call with memory: what it sends and leaves behind. */
struct Expected {
    std::vector<std::wstring> lines;
    Registry before;
    Registry after;
    std::size_t allocations = 0;
};

void ExpectKnown(const Registry& found, const Expected& expected) {
    for (const auto& [path, value] : found) {
        const auto before = expected.before.find(path);
        const auto after = expected.after.find(path);
        EXPECT_TRUE((before != expected.before.end() && before->second == value) ||
                    (after != expected.after.end() && after->second == value))
            << "written: " << testing::PrintToString(path) << " " << testing::PrintToString(value);
    }
}

void ExpectWhole(const std::vector<std::wstring>& found, const Expected& expected) {
    for (const std::wstring& line : found) {
        EXPECT_EQ(std::ranges::count(expected.lines, line), 1) << "sent: " << testing::PrintToString(line);
    }
}

Expected CallWithMemory(const Function& function, MemoryFault& memory, FixedLines& lines) {
    Expected expected;
    function.arrange();
    static_cast<void>(function.call()); // what is made at the first use only is made here
    function.arrange();
    expected.before = ReadRegistry();
    lines.Clear();
    Outcome outcome = Outcome::Neither;
    const MemoryUse use = memory.Run(Failing::Nothing(), [&] { outcome = function.call(); });
    EXPECT_EQ(outcome, Outcome::Worked);
    EXPECT_EQ(use.leftOver, 0u);
    expected.lines = lines.Lines();
    expected.lines.insert(expected.lines.end(), function.linesOfFailure.begin(), function.linesOfFailure.end());
    expected.after = ReadRegistry();
    EXPECT_EQ(expected.after != expected.before, function.writes);
    expected.allocations = use.allocations;
    return expected;
}

void CallWithout(const Function& function, Failing failing, const Expected& expected, MemoryFault& memory,
                 FixedLines& lines) {
    SCOPED_TRACE(testing::PrintToString(failing));
    if (function.writes) {
        function.arrange();
    }
    lines.Clear();
    Outcome outcome = Outcome::Neither;
    const MemoryUse use = memory.Run(failing, [&] { outcome = function.call(); });
    EXPECT_GT(use.failures, 0u);
    EXPECT_NE(outcome, Outcome::Neither);
    EXPECT_EQ(use.leftOver, 0u);
    ExpectWhole(lines.Lines(), expected);
    if (function.writes) {
        ExpectKnown(ReadRegistry(), expected);
        function.arrange();
    }
    EXPECT_EQ(function.call(), Outcome::Worked) << "the next call";
    if (function.writes) {
        EXPECT_EQ(ReadRegistry(), expected.after) << "the next call";
    }
}

} // namespace

std::vector<std::wstring> FixedLines::Lines() const {
    std::vector<std::wstring> lines;
    for (std::size_t index = 0; index < m_count; ++index) {
        lines.emplace_back(m_lines[index].data());
    }
    return lines;
}

void FixedLines::Keep(const wchar_t* line) {
    if (m_count < m_lines.size()) {
        std::wcsncpy(m_lines[m_count++].data(), line, kMaxLength - 1);
    }
}

Registry ReadRegistry() {
    Registry all;
    AddValues(HKEY_LOCAL_MACHINE, L"", L"HKLM\\", all);
    AddValues(HKEY_USERS, L"", L"HKU\\", all);
    return all;
}

void Run(const Function& function, MemoryFault& memory, FixedLines& lines, Count& count) {
    SCOPED_TRACE(function.name);
    const Expected expected = CallWithMemory(function, memory, lines);
    for (std::size_t nth = 1; nth <= expected.allocations; ++nth) {
        CallWithout(function, Failing::Once(nth), expected, memory, lines);
        CallWithout(function, Failing::From(nth), expected, memory, lines);
        count.attempts += 2;
    }
    EXPECT_EQ(ReadRegistry(), expected.after);
    ++count.functions;
    count.allocations += expected.allocations;
}

} // namespace memorymatrix
