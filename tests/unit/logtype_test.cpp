// The names of log types, which stand in a file beside Util.dll.
#include "systemenvironment.h"

#include "queryfixture.h"
#include "support/childprocess.h"

#include <cstdio>
#include <functional>
#include <optional>
#include <ostream>

namespace querytest {

namespace {

std::filesystem::path LogTypeFile() {
    return kxtest::OwnFolder() / "config" / "LogType.xml";
}

class LogTypeTest : public QueryTest {
protected:
    ~LogTypeTest() override { std::filesystem::remove(LogTypeFile()); }
    static constexpr wchar_t kFailedLine[] = L"load xml file failed(SystemEnvironment::GetStringNameById)\n";
};

struct LogTypeCase {
    std::string file;
    int id;
    std::string name;
};
std::ostream& operator<<(std::ostream& out, const LogTypeCase& logType) {
    return out << logType.id << " in " << logType.file;
}
class LogTypeLookUpTest : public LogTypeTest, public testing::WithParamInterface<LogTypeCase> {};

const char* const kTwoItems = "<T><Item ID=\"1\" Value=\"one\"/><Item ID=\"2\" Value=\"two\"/></T>";
const char* const kOthersAround = "<T><Other ID=\"3\" Value=\"before\"/><Item ID=\"1\" Value=\"one\"/>"
                                  "<Other ID=\"3\" Value=\"after\"/></T>";

INSTANTIATE_TEST_SUITE_P(
    Tables, LogTypeLookUpTest,
    testing::Values(
        LogTypeCase{kTwoItems, 1, "one"}, LogTypeCase{kTwoItems, 2, "two"}, LogTypeCase{kTwoItems, 3, "null"},
        LogTypeCase{kTwoItems, 0, "null"}, LogTypeCase{"<any-root><Item ID=\"1\" Value=\"one\"/></any-root>", 1, "one"},
        // Any name counts, but only from the first Item on.
        LogTypeCase{kOthersAround, 3, "after"}, LogTypeCase{"<T><Other ID=\"3\" Value=\"x\"/></T>", 3, "null"},
        LogTypeCase{"<T><item ID=\"3\" Value=\"x\"/></T>", 3, "null"}, LogTypeCase{"<T/>", 3, "null"},
        LogTypeCase{"<T><Box><Item ID=\"3\" Value=\"x\"/></Box></T>", 3, "null"},
        LogTypeCase{"<T><Item ID=\"1\"/><Box><Item ID=\"3\" Value=\"x\"/></Box></T>", 3, "null"},
        LogTypeCase{"<T><Item ID=\"3\" Value=\"x\"/><Item ID=\"3\" Value=\"y\"/></T>", 3, "x"},
        LogTypeCase{"<Item ID=\"3\" Value=\"root\"/>", 3, "null"},
        LogTypeCase{"<T>text<!-- c --><Item ID=\"1\"/>text<Item ID=\"3\" Value=\"x\"/></T>", 3, "x"},
        // An element without the attribute has no number, not even 0.
        LogTypeCase{"<T><Item Value=\"x\"/></T>", 0, "null"},
        LogTypeCase{"<T><Item id=\"3\" Value=\"x\"/></T>", 3, "null"},
        LogTypeCase{"<T><Item Value=\"x\"/><Item ID=\"3\" Value=\"y\"/></T>", 3, "y"},
        LogTypeCase{"<T><Item ID=\"07\" Value=\"x\"/></T>", 7, "x"},
        LogTypeCase{"<T><Item ID=\"  7\" Value=\"x\"/></T>", 7, "x"},
        LogTypeCase{"<T><Item ID=\"+7\" Value=\"x\"/></T>", 7, "x"},
        LogTypeCase{"<T><Item ID=\"-7\" Value=\"x\"/></T>", -7, "x"},
        LogTypeCase{"<T><Item ID=\"-7\" Value=\"x\"/></T>", 7, "null"},
        LogTypeCase{"<T><Item ID=\"7.9\" Value=\"x\"/></T>", 7, "x"},
        LogTypeCase{"<T><Item ID=\"7 8\" Value=\"x\"/></T>", 7, "x"},
        LogTypeCase{"<T><Item ID=\"x7\" Value=\"x\"/></T>", 0, "x"},
        LogTypeCase{"<T><Item ID=\"\" Value=\"x\"/></T>", 0, "x"},
        LogTypeCase{"<T><Item ID=\"0x10\" Value=\"x\"/></T>", 0, "x"},
        LogTypeCase{"<T><Item ID=\"- 7\" Value=\"x\"/></T>", 0, "x"},
        LogTypeCase{"<T><Item ID=\"2147483647\" Value=\"x\"/></T>", 2147483647, "x"},
        LogTypeCase{"<T><Item ID=\"-2147483648\" Value=\"x\"/></T>", -2147483647 - 1, "x"},
        LogTypeCase{"<T><Item ID=\"7\"/></T>", 7, ""}, LogTypeCase{"<T><Item ID=\"7\" Value=\"\"/></T>", 7, ""},
        LogTypeCase{"<T><Item ID=\"7\" value=\"x\">text</Item></T>", 7, ""},
        LogTypeCase{"<T><Item ID=\"7\" Value=\" a &amp; \xc3\xa9 \"/></T>", 7, " a & \xc3\xa9 "},
        LogTypeCase{"<T><Item ID=\"7\" Value=\"null\"/></T>", 7, "null"}));

TEST_P(LogTypeLookUpTest, Table_GivesTheName) {
    kxtest::WriteFileBytes(LogTypeFile(), GetParam().file);
    EXPECT_EQ(SystemEnvironment::GetStringNameById(GetParam().id), GetParam().name);
    EXPECT_THAT(fakeutil::ArgumentsOf("KxXMLDocument::LoadFile"), ElementsAre(LogTypeFile().string()));
}

TEST_F(LogTypeTest, MissingFile_NullAndReportedUntilItIsThere) {
    EXPECT_EQ(SystemEnvironment::GetStringNameById(1), "null");
    EXPECT_THAT(TakeLines(), ElementsAre(kFailedLine));
    kxtest::WriteFileBytes(LogTypeFile(), kTwoItems);
    EXPECT_EQ(SystemEnvironment::GetStringNameById(1), "one");
}

TEST_F(LogTypeTest, FileThatIsNoXml_NullAndReported) {
    for (const char* bytes : {"", "no xml", "<T><Item ID=\"1\" Value=\"one\"/>"}) {
        SCOPED_TRACE(bytes);
        kxtest::WriteFileBytes(LogTypeFile(), bytes);
        EXPECT_EQ(SystemEnvironment::GetStringNameById(1), "null");
        EXPECT_THAT(TakeLines(), ElementsAre(kFailedLine));
    }
}

TEST_F(LogTypeTest, LoadFailsWithAnyCode_NullAndReported) {
    kxtest::WriteFileBytes(LogTypeFile(), kTwoItems);
    for (const int code : {1, 19, -1}) {
        fakeutil::ScriptLoadFile([code](const std::string&) { return code; });
        EXPECT_EQ(SystemEnvironment::GetStringNameById(1), "null");
        EXPECT_THAT(TakeLines(), ElementsAre(kFailedLine));
    }
}

TEST_F(LogTypeTest, NoRootElement_NullWithoutALine) {
    kxtest::WriteFileBytes(LogTypeFile(), kTwoItems);
    fakeutil::ScriptRootElementIsNull([] { return true; });
    EXPECT_EQ(SystemEnvironment::GetStringNameById(1), "null");
}

TEST_F(LogTypeTest, LoadThrows_NullAndTheNextWorks) {
    kxtest::WriteFileBytes(LogTypeFile(), kTwoItems);
    fakeutil::ScriptLoadFile([](const std::string&) -> std::optional<KxXmlError> { throw std::bad_alloc(); });
    EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetStringNameById(1), "null"));
    fakeutil::ScriptLoadFile(nullptr);
    EXPECT_EQ(SystemEnvironment::GetStringNameById(1), "one");
}

// The path of Util.dll as the library under test gets it.
using ModulePathHook = kxtest::ImportHook<"KERNEL32.dll", "GetModuleFileNameA", decltype(GetModuleFileNameA)>;

TEST_F(LogTypeTest, PathOfTheLoadedUtil_IsAskedForAndDecides) {
    HMODULE asked = nullptr;
    DWORD offered = 0;
    const ModulePathHook hook([&](HMODULE module, LPSTR path, DWORD size) -> DWORD {
        asked = module;
        offered = size;
        const std::string elsewhere = "Q:\\some where\\Util.dll";
        std::memcpy(path, elsewhere.c_str(), elsewhere.size() + 1);
        return static_cast<DWORD>(elsewhere.size());
    });
    EXPECT_EQ(SystemEnvironment::GetStringNameById(1), "null");
    EXPECT_THAT(fakeutil::ArgumentsOf("KxXMLDocument::LoadFile"), ElementsAre("Q:\\some where\\config\\LogType.xml"));
    EXPECT_EQ(asked, GetModuleHandleW(L"Util.dll"));
    EXPECT_EQ(offered, DWORD{MAX_PATH});
    EXPECT_THAT(TakeLines(), ElementsAre(kFailedLine));
}

TEST_F(LogTypeTest, PathThatFillsTheBuffer_NullAndReported) {
    const ModulePathHook hook([](HMODULE, LPSTR path, DWORD size) {
        std::memset(path, 'x', size);
        std::memcpy(path, "Q:\\", 3);
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return size;
    });
    EXPECT_EQ(SystemEnvironment::GetStringNameById(1), "null");
    EXPECT_THAT(TakeLines(), ElementsAre(kFailedLine));
}

// --- Util.dll in another folder than the host

const kxtest::ChildScenario kLogTypeScenario("log-type", [] {
    std::wstring util(MAX_PATH, L'\0');
    util.resize(GetModuleFileNameW(GetModuleHandleW(L"Util.dll"), util.data(), MAX_PATH));
    std::printf("%s %s %s", kxtest::OwnFolder().filename().string().c_str(),
                std::filesystem::path(util).parent_path().filename().string().c_str(),
                SystemEnvironment::GetStringNameById(1).c_str());
});

TEST(LogTypeFolder, UtilInAnotherFolderThanTheHost_TableBesideUtilIsRead) {
    const kxtest::TempFolder folder;
    const std::filesystem::path host = folder.Path() / "host";
    const std::filesystem::path shared = folder.Path() / "shared";
    std::filesystem::create_directories(host);
    std::filesystem::create_directories(shared);
    for (const auto& file : std::filesystem::directory_iterator(kxtest::OwnFolder())) {
        if (file.path().extension() == ".dll") {
            std::filesystem::copy(file.path(), file.path().filename() == "Util.dll" ? shared : host);
        }
    }
    const std::filesystem::path program = host / kxtest::OwnProgram().filename();
    std::filesystem::copy(kxtest::OwnProgram(), program);
    kxtest::WriteFileBytes(host / "config" / "LogType.xml", "<T><Item ID=\"1\" Value=\"of the host\"/></T>");
    // The current folder comes before those of the variable.
    const kxtest::CurrentFolder current(host);
    const kxtest::SearchFolder libraries(shared);
    EXPECT_EQ(kxtest::RunChild("log-type", program).output, "host shared null");
    kxtest::WriteFileBytes(shared / "config" / "LogType.xml", "<T><Item ID=\"1\" Value=\"of the library\"/></T>");
    EXPECT_EQ(kxtest::RunChild("log-type", program).output, "host shared of the library");
}

} // namespace

} // namespace querytest
