// Where modules lie: any length of path, and failures that are told.
#include "common/win/modulepath.h"

#include "support/importpatch.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

namespace {

using PathHook = kxtest::ImportHook<"KERNEL32.dll", "GetModuleFileNameW", decltype(GetModuleFileNameW)>;

// The compiler may keep an imported function's address in a register for the length of one function.
std::optional<std::wstring> (*volatile PathOf)(HMODULE) = &kx::ModulePath;
std::optional<std::wstring> (*volatile FolderOf)(HMODULE) = &kx::ModuleFolder;

HMODULE OwnModule() {
    return GetModuleHandleW(nullptr);
}

// Behaves as the system does: cuts what does not fit, with a zero at the end, and says that the buffer is full.
DWORD Answer(const std::wstring& path, wchar_t* buffer, DWORD capacity) {
    const std::wstring fitting = path.substr(0, capacity - 1);
    fitting.copy(buffer, fitting.size());
    buffer[fitting.size()] = L'\0';
    if (fitting.size() < path.size()) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return capacity;
    }
    return static_cast<DWORD>(path.size());
}

PathHook ModuleLiesAt(const std::wstring& path) {
    return PathHook([path](HMODULE, wchar_t* buffer, DWORD capacity) { return Answer(path, buffer, capacity); },
                    OwnModule());
}

TEST(ModulePath, OwnProgram_IsTheFileThatRuns) {
    const std::filesystem::path path = PathOf(nullptr).value();
    EXPECT_EQ(path.filename(), L"common_test.exe");
    EXPECT_TRUE(std::filesystem::is_regular_file(path));
}

TEST(ModulePath, EveryLengthAroundTheBuffers_IsWhole) {
    for (const std::size_t length : {4u, 259u, 260u, 261u, 519u, 520u, 521u, 32767u}) {
        const std::wstring path = L"C:\\" + std::wstring(length - 3, L'm');
        const PathHook hook = ModuleLiesAt(path);
        EXPECT_EQ(PathOf(nullptr), path) << length;
    }
}

TEST(ModulePath, SystemThatDoesNotTell_IsNothingWithItsReason) {
    const PathHook hook(
        [](HMODULE, wchar_t*, DWORD) -> DWORD {
            SetLastError(ERROR_ACCESS_DENIED);
            return 0;
        },
        OwnModule());
    EXPECT_EQ(PathOf(nullptr), std::nullopt);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
}

TEST(ModulePath, PathThatNeverFits_IsNothing) {
    const PathHook hook([](HMODULE, wchar_t*, DWORD capacity) { return capacity; }, OwnModule());
    EXPECT_EQ(PathOf(nullptr), std::nullopt);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST(ModuleFolder, LongPath_LosesItsLastPartOnly) {
    const std::wstring folder = L"C:\\" + std::wstring(300, L'f');
    const PathHook hook = ModuleLiesAt(folder + L"\\module.dll");
    EXPECT_EQ(FolderOf(nullptr), folder);
}

TEST(ModuleFolder, PathWithoutAFolder_IsNothing) {
    const PathHook hook = ModuleLiesAt(L"module.dll");
    EXPECT_EQ(FolderOf(nullptr), std::nullopt);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_BAD_PATHNAME});
}

TEST(ModuleContaining, FunctionOfALibrary_IsThatLibrary) {
    const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    const auto function = reinterpret_cast<void*>(GetProcAddress(kernel, "GetTickCount"));
    EXPECT_EQ(kx::ModuleContaining(function), kernel);
}

TEST(ModuleContaining, AddressOfNoModule_IsNull) {
    int onTheStack = 0;
    EXPECT_EQ(kx::ModuleContaining(&onTheStack), nullptr);
}

} // namespace
