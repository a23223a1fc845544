// The device function switches, on real files in the host folder.
#include "devicefuncswitchfixture.h"
#include "support/importpatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <shlwapi.h>

#include <algorithm>
#include <new>
#include <optional>
#include <ostream>

namespace switchtest {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::wstring kLoadFailed = L"load xml file failed(SystemEnvironment::IsSupportDeviceFunc)\n";
const std::wstring kNoRoot = L"root is nullptr (SystemEnvironment::IsSupportDeviceFunc)\n";

// --- the file's structure

TEST_F(DeviceFuncSwitchTest, SwitchOnWithoutProductList_OnForEveryMachine) {
    WriteSwitches(OneSwitch("1"));
    EXPECT_TRUE(IsBoostOn());
    EXPECT_THAT(fakeutil::ArgumentsOf("KxXMLDocument::LoadFile"), ElementsAre(SwitchFile().string()));
    EXPECT_THAT(fakeutil::ArgumentsOf(kAskForName), IsEmpty());
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(DeviceFuncSwitchTest, FileMissing_FalseAndSilent) {
    EXPECT_FALSE(IsBoostOn());
    EXPECT_THAT(fakeutil::Calls(), IsEmpty());
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(DeviceFuncSwitchTest, FileChangesBetweenCalls_IsReadAfresh) {
    WriteSwitches(OneSwitch("1"));
    EXPECT_TRUE(IsBoostOn());
    WriteSwitches(OneSwitch("0"));
    EXPECT_FALSE(IsBoostOn());
    std::filesystem::remove(SwitchFile());
    EXPECT_FALSE(IsBoostOn());
    WriteSwitches(OneSwitch("1"));
    EXPECT_TRUE(IsBoostOn());
}

TEST_F(DeviceFuncSwitchTest, OtherCurrentFolder_TheHostFolderCounts) {
    const kxtest::TempFolder folder;
    kxtest::WriteFileBytes(folder.Path() / "config" / "DeviceFuncSwitchConf.xml", OneSwitch("0"));
    WriteSwitches(OneSwitch("1"));
    const kxtest::CurrentFolder current(folder.Path());
    EXPECT_TRUE(IsBoostOn());
}

struct FileCase {
    const char* what;
    std::string bytes;
    bool isOn;
};
std::ostream& operator<<(std::ostream& out, const FileCase& file) {
    return out << file.what;
}

class SwitchStructureTest : public DeviceFuncSwitchTest, public testing::WithParamInterface<FileCase> {};

INSTANTIATE_TEST_SUITE_P(
    Files, SwitchStructureTest,
    testing::Values(
        FileCase{"root of another name", "<x><Power><Boost>1</Boost></Power></x>", true},
        FileCase{"declaration, comments and other content",
                 "<?xml version=\"1.0\"?><!-- c --><S>text<A>0</A><!-- d --><Power a=\"b\"><C>0</C><Boost>1</Boost>"
                 "</Power><B/></S>",
                 true},
        FileCase{"byte-order mark", "\xef\xbb\xbf<S><Power><Boost>1</Boost></Power></S>", true},
        FileCase{"group missing", "<S><Other><Boost>1</Boost></Other></S>", false},
        FileCase{"function missing", "<S><Power><Other>1</Other></Power></S>", false},
        FileCase{"root is the group", "<Power><Boost>1</Boost></Power>", false},
        FileCase{"group one level too deep", "<S><T><Power><Boost>1</Boost></Power></T></S>", false},
        FileCase{"function one level too deep", "<S><Power><T><Boost>1</Boost></T></Power></S>", false},
        FileCase{"function beside the group", "<S><Power/><Boost>1</Boost></S>", false},
        FileCase{"other letter case of the group", "<S><power><Boost>1</Boost></power></S>", false},
        FileCase{"other letter case of the function", "<S><Power><boost>1</boost></Power></S>", false},
        FileCase{"first function off, second on", "<S><Power><Boost>0</Boost><Boost>1</Boost></Power></S>", false},
        FileCase{"first function on, second off", "<S><Power><Boost>1</Boost><Boost>0</Boost></Power></S>", true},
        FileCase{"first function empty, second on", "<S><Power><Boost/><Boost>1</Boost></Power></S>", false},
        FileCase{"function in the second group only", "<S><Power/><Power><Boost>1</Boost></Power></S>", false},
        FileCase{"off in the first group, on in the second",
                 "<S><Power><Boost>0</Boost></Power><Power><Boost>1</Boost></Power></S>", false},
        FileCase{"function without text", "<S><Power><Boost/></Power></S>", false},
        FileCase{"function with an empty text", "<S><Power><Boost></Boost></Power></S>", false},
        FileCase{"switch as an attribute", "<S><Power><Boost value=\"1\"/></Power></S>", false},
        FileCase{"entity for the digit", "<S><Power><Boost>&#49;</Boost></Power></S>", true}));

TEST_P(SwitchStructureTest, IsReadAsDescribed) {
    WriteSwitches(GetParam().bytes);
    EXPECT_EQ(IsBoostOn(), GetParam().isOn);
    EXPECT_THAT(Lines(), IsEmpty());
}

struct TextCase {
    const char* text;
    bool isOn;
};
std::ostream& operator<<(std::ostream& out, const TextCase& text) {
    return out << '"' << text.text << '"';
}

class SwitchTextTest : public DeviceFuncSwitchTest, public testing::WithParamInterface<TextCase> {};

INSTANTIATE_TEST_SUITE_P(Texts, SwitchTextTest,
                         testing::Values(TextCase{"1", true}, TextCase{" 1", true}, TextCase{"1x", true},
                                         TextCase{"01", true}, TextCase{"0001", true}, TextCase{"+1", true},
                                         TextCase{"\t1", true}, TextCase{"\n 1\n", true}, TextCase{"1 ", true},
                                         TextCase{"1.5", true}, TextCase{"1 0", true}, TextCase{"true", false},
                                         TextCase{"2", false}, TextCase{"0", false}, TextCase{"-1", false},
                                         TextCase{"11", false}, TextCase{"x1", false}, TextCase{"- 1", false},
                                         TextCase{"+ 1", false}, TextCase{"0x1", false}, TextCase{"  ", false},
                                         TextCase{"\xef\xbc\x91", false}));

TEST_P(SwitchTextTest, OnlyTheNumberOne_IsOn) {
    WriteSwitches(OneSwitch(GetParam().text));
    EXPECT_EQ(IsBoostOn(), GetParam().isOn);
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(DeviceFuncSwitchTest, EmptyNames_NameNoElement) {
    WriteSwitches(OneSwitch("1"));
    EXPECT_FALSE(SystemEnvironment::IsSupportDeviceFunc("", "Boost"));
    EXPECT_FALSE(SystemEnvironment::IsSupportDeviceFunc("Power", ""));
    EXPECT_FALSE(SystemEnvironment::IsSupportDeviceFunc("", ""));
}

TEST_F(DeviceFuncSwitchTest, NamesThatNoElementCanHave_False) {
    WriteSwitches(OneSwitch("1"));
    EXPECT_FALSE(SystemEnvironment::IsSupportDeviceFunc("Power/Boost", "Boost"));
    EXPECT_FALSE(SystemEnvironment::IsSupportDeviceFunc("Power", std::string(100000, 'B')));
    EXPECT_FALSE(SystemEnvironment::IsSupportDeviceFunc("Power", std::string("Boost\0x", 7)));
    EXPECT_FALSE(SystemEnvironment::IsSupportDeviceFunc("Power ", "Boost"));
}

// --- files that do not parse

class BrokenSwitchFileTest : public DeviceFuncSwitchTest, public testing::WithParamInterface<FileCase> {};

std::string Repeated(std::string_view piece, std::size_t times) {
    std::string text;
    text.reserve(piece.size() * times);
    for (std::size_t i = 0; i < times; ++i) {
        text += piece;
    }
    return text;
}
std::string Utf16(const std::string& ascii) {
    std::string bytes = "\xff\xfe";
    for (const char c : ascii) {
        bytes += c;
        bytes += '\0';
    }
    return bytes;
}

constexpr std::size_t kHugeSize = 50u * 1024 * 1024;
constexpr std::size_t kDepth = 10000;

INSTANTIATE_TEST_SUITE_P(
    Files, BrokenSwitchFileTest,
    testing::Values(FileCase{"empty", "", false}, FileCase{"blanks alone", " \r\n\t", false},
                    FileCase{"no XML", "1", false}, FileCase{"zeros", std::string(4096, '\0'), false},
                    FileCase{"cut off", "<S><Power><Boost>1</Boost>", false},
                    FileCase{"cut off in a tag", "<S><Power><Boost>1</Boost></Pow", false},
                    FileCase{"cut off in an attribute", "<S><Power><Boost support=\"1", false},
                    FileCase{"crossed tags", "<S><Power><Boost>1</Power></Boost></S>", false},
                    FileCase{"attribute without quotes", "<S><Power><Boost support=x>1</Boost></Power></S>", false},
                    FileCase{"UTF-16", Utf16(OneSwitch("1")), false},
                    FileCase{"nested 10,000 deep",
                             "<S>" + Repeated("<Power>", kDepth) + Repeated("</Power>", kDepth) + "</S>", false},
                    FileCase{"nested 10,000 deep and never closed", Repeated("<Power>", kDepth), false}));

TEST_P(BrokenSwitchFileTest, FalseAndReported) {
    WriteSwitches(GetParam().bytes);
    EXPECT_FALSE(IsBoostOn());
    EXPECT_THAT(Lines(), ElementsAre(kLoadFailed));
}

TEST_F(DeviceFuncSwitchTest, FiftyMegabytesBehindAnEntry_FalseAndReported) {
    WriteSwitches("<S><Power><Boost>1</Boost></Power><!--" + std::string(kHugeSize, 'x') + "--></S>");
    EXPECT_FALSE(IsBoostOn());
    EXPECT_THAT(Lines(), ElementsAre(kLoadFailed));
}

TEST_F(DeviceFuncSwitchTest, FiftyMegabytesOfBrokenBytes_FalseAndReported) {
    WriteSwitches(std::string(kHugeSize, '<'));
    EXPECT_FALSE(IsBoostOn());
    EXPECT_THAT(Lines(), ElementsAre(kLoadFailed));
}

TEST_F(DeviceFuncSwitchTest, FolderInTheFilesPlace_FalseAndReported) {
    std::filesystem::create_directories(SwitchFile());
    EXPECT_FALSE(IsBoostOn());
    EXPECT_THAT(Lines(), ElementsAre(kLoadFailed));
}

TEST_F(DeviceFuncSwitchTest, EveryLoadError_FalseAndReportedWithoutLookingInside) {
    WriteSwitches(OneSwitch("1"));
    for (const int error : {1, 3, 19, -1}) {
        SCOPED_TRACE(error);
        fakeutil::Reset();
        fakeutil::ScriptLoadFile([error](const std::string&) { return error; });
        EXPECT_FALSE(IsBoostOn());
        EXPECT_THAT(fakeutil::ArgumentsOf("KxXMLDocument::RootElement"), IsEmpty());
    }
    EXPECT_THAT(Lines(), ElementsAre(kLoadFailed, kLoadFailed, kLoadFailed, kLoadFailed));
    fakeutil::Reset();
    EXPECT_TRUE(IsBoostOn());
}

TEST_F(DeviceFuncSwitchTest, CommentsAlone_NoRootIsReported) {
    WriteSwitches("<?xml version=\"1.0\"?><!-- nothing -->");
    EXPECT_FALSE(IsBoostOn());
    EXPECT_THAT(Lines(), ElementsAre(kNoRoot));
}

TEST_F(DeviceFuncSwitchTest, RootIsNull_ReportedAndWorksAgain) {
    WriteSwitches(OneSwitch("1"));
    fakeutil::ScriptRootElementIsNull([] { return true; });
    EXPECT_FALSE(IsBoostOn());
    EXPECT_THAT(fakeutil::ArgumentsOf("KxXmlElement::FirstNode"), IsEmpty());
    fakeutil::Reset();
    EXPECT_TRUE(IsBoostOn());
    EXPECT_THAT(Lines(), ElementsAre(kNoRoot));
}

TEST_F(DeviceFuncSwitchTest, BrokenFileTwice_ReportedEachTime) {
    WriteSwitches("<S>");
    IsBoostOn();
    IsBoostOn();
    EXPECT_THAT(Lines(), ElementsAre(kLoadFailed, kLoadFailed));
}

// --- the four steps to the file's path

using ModuleFileNameHook = kxtest::ImportHook<"KERNEL32.dll", "GetModuleFileNameA", decltype(GetModuleFileNameA)>;
using RemoveFileSpecHook = kxtest::ImportHook<"SHLWAPI.dll", "PathRemoveFileSpecA", decltype(PathRemoveFileSpecA)>;
using AppendHook = kxtest::ImportHook<"SHLWAPI.dll", "PathAppendA", decltype(PathAppendA)>;
using FileExistsHook = kxtest::ImportHook<"SHLWAPI.dll", "PathFileExistsA", decltype(PathFileExistsA)>;

constexpr DWORD kPathCapacity = 260;

class SwitchPathTest : public DeviceFuncSwitchTest {
protected:
    SwitchPathTest() { WriteSwitches(OneSwitch("1")); }

    void ExpectSilentFalse() const {
        EXPECT_FALSE(IsBoostOn());
        EXPECT_THAT(fakeutil::Calls(), IsEmpty());
        EXPECT_THAT(Lines(), IsEmpty());
    }
};

TEST_F(SwitchPathTest, HostPathCannotBeObtained_FalseAndSilent) {
    {
        const ModuleFileNameHook hook([](HMODULE, LPSTR, DWORD) -> DWORD { return 0; });
        ExpectSilentFalse();
        EXPECT_EQ(hook.Calls(), 1);
    }
    EXPECT_TRUE(IsBoostOn());
}

TEST_F(SwitchPathTest, HostPathDoesNotFit_FalseAndSilent) {
    const kxtest::CurrentFolder current(kxtest::OwnFolder());
    {
        const ModuleFileNameHook hook([](HMODULE, LPSTR path, DWORD capacity) {
            std::fill_n(path, capacity - 1, 'x');
            path[capacity - 1] = '\0';
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return capacity;
        });
        ExpectSilentFalse();
    }
    EXPECT_TRUE(IsBoostOn());
}

TEST_F(SwitchPathTest, HostPath_IsAskedForWithoutAModuleIntoZeroedCharacters) {
    HMODULE module = GetModuleHandleW(nullptr);
    DWORD capacity = 0;
    bool isZeroed = false;
    {
        const ModuleFileNameHook hook([&](HMODULE of, LPSTR path, DWORD size) {
            module = of;
            capacity = size;
            isZeroed = std::all_of(path, path + size, [](char c) { return c == '\0'; });
            return ModuleFileNameHook::Original(of, path, size);
        });
        EXPECT_TRUE(IsBoostOn());
    }
    EXPECT_EQ(module, nullptr);
    EXPECT_EQ(capacity, kPathCapacity);
    EXPECT_TRUE(isZeroed);
}

TEST_F(SwitchPathTest, FileNameCannotBeRemoved_FalseAndSilent) {
    {
        const RemoveFileSpecHook hook([](LPSTR) { return FALSE; });
        ExpectSilentFalse();
        EXPECT_EQ(hook.Calls(), 1);
    }
    EXPECT_TRUE(IsBoostOn());
}

TEST_F(SwitchPathTest, PathCannotBeExtended_FalseAndSilent) {
    {
        const AppendHook hook([](LPSTR, LPCSTR) { return FALSE; });
        ExpectSilentFalse();
        EXPECT_EQ(hook.Calls(), 1);
    }
    EXPECT_TRUE(IsBoostOn());
}

TEST_F(SwitchPathTest, AppendedText_IsTheConfigurationFile) {
    std::string appended;
    {
        const AppendHook hook([&](LPSTR path, LPCSTR more) {
            appended = more;
            return AppendHook::Original(path, more);
        });
        EXPECT_TRUE(IsBoostOn());
    }
    EXPECT_EQ(appended, "config\\DeviceFuncSwitchConf.xml");
}

TEST_F(SwitchPathTest, FileDoesNotExist_FalseAndSilent) {
    std::string asked;
    {
        const FileExistsHook hook([&](LPCSTR path) {
            asked = path;
            return FALSE;
        });
        ExpectSilentFalse();
        EXPECT_EQ(hook.Calls(), 1);
    }
    EXPECT_EQ(asked, SwitchFile().string());
    EXPECT_TRUE(IsBoostOn());
}

TEST_F(DeviceFuncSwitchTest, LoadThrows_Off) {
    WriteSwitches(OneSwitch("1"));
    fakeutil::ScriptLoadFile([](const std::string&) -> std::optional<KxXmlError> { throw std::bad_alloc(); });
    EXPECT_NO_THROW(EXPECT_FALSE(IsBoostOn()));
    fakeutil::Reset();
    EXPECT_TRUE(IsBoostOn());
}

} // namespace

} // namespace switchtest
