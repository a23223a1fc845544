// IsSupport: which files and binary types count as a runnable worker.
#include "support/hostfolder.h"
#include "unit/proxyfixture.h"

#include <cstring>

namespace proxytest {

namespace {

using kxtest::CurrentFolder;
using kxtest::OwnFolder;
using kxtest::TempFolder;
using kxtest::WriteFileBytes;

// The smallest image that the loader takes for a 32-bit console program.
std::string Program32() {
    constexpr std::size_t kHeaderBytes = 0x200;
    constexpr std::size_t kSectionBytes = 0x200;
    std::string file(kHeaderBytes + kSectionBytes, '\0');
    IMAGE_DOS_HEADER dos{};
    dos.e_magic = IMAGE_DOS_SIGNATURE;
    dos.e_cparhdr = 4;
    dos.e_lfarlc = 0x40;
    dos.e_lfanew = sizeof(dos);
    IMAGE_NT_HEADERS32 headers{};
    headers.Signature = IMAGE_NT_SIGNATURE;
    headers.FileHeader.Machine = IMAGE_FILE_MACHINE_I386;
    headers.FileHeader.NumberOfSections = 1;
    headers.FileHeader.SizeOfOptionalHeader = sizeof(headers.OptionalHeader);
    headers.FileHeader.Characteristics =
        IMAGE_FILE_EXECUTABLE_IMAGE | IMAGE_FILE_32BIT_MACHINE | IMAGE_FILE_RELOCS_STRIPPED;
    headers.OptionalHeader.Magic = IMAGE_NT_OPTIONAL_HDR32_MAGIC;
    headers.OptionalHeader.SizeOfCode = kSectionBytes;
    headers.OptionalHeader.AddressOfEntryPoint = 0x1000;
    headers.OptionalHeader.BaseOfCode = 0x1000;
    headers.OptionalHeader.ImageBase = 0x400000;
    headers.OptionalHeader.SectionAlignment = 0x1000;
    headers.OptionalHeader.FileAlignment = 0x200;
    headers.OptionalHeader.MajorOperatingSystemVersion = 4;
    headers.OptionalHeader.MajorSubsystemVersion = 4;
    headers.OptionalHeader.SizeOfImage = 0x2000;
    headers.OptionalHeader.SizeOfHeaders = kHeaderBytes;
    headers.OptionalHeader.Subsystem = IMAGE_SUBSYSTEM_WINDOWS_CUI;
    headers.OptionalHeader.NumberOfRvaAndSizes = IMAGE_NUMBEROF_DIRECTORY_ENTRIES;
    IMAGE_SECTION_HEADER section{};
    std::memcpy(section.Name, ".text", 5);
    section.Misc.VirtualSize = kSectionBytes;
    section.VirtualAddress = 0x1000;
    section.SizeOfRawData = kSectionBytes;
    section.PointerToRawData = kHeaderBytes;
    section.Characteristics = IMAGE_SCN_CNT_CODE | IMAGE_SCN_MEM_EXECUTE | IMAGE_SCN_MEM_READ;
    std::memcpy(file.data(), &dos, sizeof(dos));
    std::memcpy(file.data() + sizeof(dos), &headers, sizeof(headers));
    std::memcpy(file.data() + sizeof(dos) + sizeof(headers), &section, sizeof(section));
    file[kHeaderBytes] = '\xC3';
    return file;
}

TEST(IsSupport, MissingFile_IsFalseAlthoughTheHostFolderHasOne) {
    ASSERT_TRUE(std::filesystem::exists(OwnFolder() / "KXVCR.exe"));
    const TempFolder folder;
    const CurrentFolder current(folder.Path());
    EXPECT_FALSE(ScreenRecordProxy::IsSupport());
}

TEST(IsSupport, Program64InTheCurrentFolder_IsTrue) {
    const TempFolder folder;
    const CurrentFolder current(folder.Path());
    WriteFileBytes(folder.Path() / "KXVCR.exe", kxtest::ReadFileBytes(OwnFolder() / "KXVCR.exe"));
    EXPECT_TRUE(ScreenRecordProxy::IsSupport());
}

TEST(IsSupport, Program32InTheCurrentFolder_IsTrue) {
    const TempFolder folder;
    const CurrentFolder current(folder.Path());
    WriteFileBytes(folder.Path() / "KXVCR.exe", Program32());
    EXPECT_TRUE(ScreenRecordProxy::IsSupport());
}

TEST(IsSupport, TextFile_IsFalse) {
    const TempFolder folder;
    const CurrentFolder current(folder.Path());
    WriteFileBytes(folder.Path() / "KXVCR.exe", "no program at all");
    EXPECT_FALSE(ScreenRecordProxy::IsSupport());
}

TEST(IsSupport, EmptyFile_IsFalse) {
    const TempFolder folder;
    const CurrentFolder current(folder.Path());
    WriteFileBytes(folder.Path() / "KXVCR.exe", "");
    EXPECT_FALSE(ScreenRecordProxy::IsSupport());
}

TEST(IsSupport, BareName_IsAsked) {
    std::wstring asked;
    const hooks::GetBinaryTypeHook hook([&](LPCWSTR name, LPDWORD type) {
        asked = name;
        *type = SCS_64BIT_BINARY;
        return TRUE;
    });
    EXPECT_TRUE(ScreenRecordProxy::IsSupport());
    EXPECT_EQ(asked, L"KXVCR.exe");
    EXPECT_EQ(hook.Calls(), 1);
}

TEST(IsSupport, BinaryType_DecidesByTable) {
    for (DWORD type = 0; type <= 8; ++type) {
        const hooks::GetBinaryTypeHook hook([type](LPCWSTR, LPDWORD out) {
            *out = type;
            return TRUE;
        });
        EXPECT_EQ(ScreenRecordProxy::IsSupport(), type == 0 || type == 6) << type;
    }
}

TEST(IsSupport, FailedQuery_IsFalseWhateverTheTypeHolds) {
    for (const DWORD type : {0ul, 6ul}) {
        const hooks::GetBinaryTypeHook hook([type](LPCWSTR, LPDWORD out) {
            *out = type;
            return FALSE;
        });
        EXPECT_FALSE(ScreenRecordProxy::IsSupport());
    }
}

TEST(IsSupport, Result_IsNotLogged) {
    const kxtest::LogCapture log;
    const TempFolder folder;
    const CurrentFolder current(folder.Path());
    EXPECT_FALSE(ScreenRecordProxy::IsSupport());
    EXPECT_TRUE(log.Events().empty());
}

} // namespace

} // namespace proxytest
