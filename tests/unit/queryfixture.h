/**
 * @file
 * What the tests of the queries share: the debugger lines, compared whole, and the narrow copies, each of which has to
 * be freed once.
 */
#pragma once

#include "fakes/fakeutil_fault.h"
#include "fakes/fakeutil_registry.h"
#include "fakes/fakeutil_services.h"
#include "fakes/fakeutil_text.h"
#include "support/debuglines.h"
#include "support/hostfolder.h"
#include "support/importpatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace querytest {

using fakeutil::Call;
using fakeutil::RegistryCalls;
using fakeutil::RegistryData;
namespace call = fakeutil::call;
using testing::ElementsAre;
using testing::IsEmpty;

inline constexpr DWORD kFullAccess = 0xF003F;
inline constexpr DWORD kReadAccess = 0x20019;
inline constexpr std::size_t kLongLength = 40000;

/** Follows the blocks that the library under test frees. */
class FreedBlocks {
public:
    void Clear() {
        const std::lock_guard guard(m_mutex);
        m_freed.clear();
    }

    std::ptrdiff_t CountOf(const void* block) const {
        const std::lock_guard guard(m_mutex);
        return std::ranges::count(m_freed, block);
    }

private:
    using FreeHook = kxtest::ImportHook<"msvcrt.dll", "free", void(void*)>;

    mutable std::mutex m_mutex;
    std::vector<const void*> m_freed;
    FreeHook m_hook{[this](void* block) {
        {
            const std::lock_guard guard(m_mutex);
            m_freed.push_back(block);
        }
        FreeHook::Original(block);
    }};
};

/** Every test says which lines it expects: what it does not take with TakeLines fails it at its end. */
class QueryTest : public testing::Test {
protected:
    QueryTest() { fakeutil::Reset(); }
    ~QueryTest() override {
        EXPECT_THAT(m_lines.Lines(), IsEmpty());
        Restart();
    }

    /** Forgets the calls and scripts of the utility library in the middle of a test. */
    void Restart() {
        ExpectCopiesFreed();
        m_freed.Clear();
        fakeutil::Reset();
    }

    /** The lines since the last call. */
    std::vector<std::wstring> TakeLines() {
        std::vector<std::wstring> lines = m_lines.Lines();
        m_lines.Clear();
        return lines;
    }

    const FreedBlocks& Freed() const { return m_freed; }

    /** Every narrow copy that was handed out until now has been freed once. */
    void ExpectCopiesFreed() const {
        // A block that was freed may be handed out once more.
        const std::vector<const void*> copies = fakeutil::NarrowCopies();
        for (const void* block : copies) {
            EXPECT_EQ(m_freed.CountOf(block), std::ranges::count(copies, block));
        }
    }

private:
    FreedBlocks m_freed;
    kxtest::DebugLines m_lines;
};

/** A call of the utility library that throws: the nth of a function. */
struct ThrowingCall {
    const char* function;
    int nth;
};
inline std::ostream& operator<<(std::ostream& out, const ThrowingCall& throwing) {
    return out << throwing.function << " #" << throwing.nth;
}

/** The OEM version file of this machine. The folder must not be there before: nothing of the machine is replaced. */
class OemFile {
public:
    OemFile() {
        if (std::filesystem::exists(kRoot)) {
            throw std::runtime_error("the machine has an OEM folder of its own");
        }
    }
    ~OemFile() {
        std::error_code ignored;
        std::filesystem::remove_all(kRoot, ignored);
    }
    OemFile(const OemFile&) = delete;
    OemFile& operator=(const OemFile&) = delete;

    static void Write(std::string_view bytes) { kxtest::WriteFileBytes(kPath, bytes); }

    static constexpr const char* kRoot = "c:\\recovery";
    static constexpr const char* kPath = "c:\\recovery\\OEM\\version.txt";
};

/** Opens a file so that nobody else can, until the object goes. */
class LockedFile {
public:
    explicit LockedFile(const std::filesystem::path& path)
        : m_file(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)) {
        if (m_file == INVALID_HANDLE_VALUE) {
            throw std::runtime_error("cannot lock " + path.string());
        }
    }
    ~LockedFile() { CloseHandle(m_file); }
    LockedFile(const LockedFile&) = delete;
    LockedFile& operator=(const LockedFile&) = delete;

private:
    HANDLE m_file;
};

/** A little-endian byte-order mark and the units as they lie in memory. */
inline std::string Utf16File(std::wstring_view text) {
    std::string bytes(text.size() * sizeof(wchar_t), '\0');
    std::memcpy(bytes.data(), text.data(), bytes.size());
    return "\xff\xfe" + bytes;
}

} // namespace querytest
