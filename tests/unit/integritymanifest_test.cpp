// The integrity check: the manifest's every shape, the lines on the debugger output, and the order of the calls.
#include "fakes/fakeutil.h"
#include "support/debuglines.h"
#include "support/hostfolder.h"
#include "systemenvironment.h"
#include "unit/proxyhooks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <locale>
#include <new>

namespace {

using kxtest::OwnFolder;
using kxtest::TempFolder;
using kxtest::WriteFileBytes;
using Lines = std::vector<std::wstring>;
using Calls = std::vector<fakeutil::Call>;

constexpr char kFileBytes[] = "abc";
constexpr char kDigest[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr char kUpperDigest[] = "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD";
constexpr char kWrongDigest[] = "0000000000000000000000000000000000000000000000000000000000000000";

constexpr wchar_t kNoManifest[] = L"CheckFileIntergrity.xml is not exist (CheckFileAndXmlExist)\n";
constexpr wchar_t kNotLoaded[] = L"load xml file failed(SystemEnvironment::CompareFileIntergrity)\n";
constexpr wchar_t kNoRoot[] = L"node1 is nullptr (SystemEnvironment::CompareFileIntergrity)\n";
constexpr wchar_t kNoDigest[] = L"Sha256 Check sha node null(SystemEnvironment::CompareFileIntergrity)\n";

std::wstring Wide(const std::string& text) {
    return {text.begin(), text.end()};
}

std::wstring NoFile(const std::string& name) {
    return L"filePath is not exist: " + Wide(name) + L"(CheckFileAndXmlExist)\n";
}

std::wstring Mismatch(const std::string& name, const std::string& computed, const std::string& stored) {
    return L"Sha256 Check faild " + Wide(name) + L" pluginsha256:" + Wide(computed) + L" fileNodeSha256:" +
           Wide(stored) + L"(SystemEnvironment::CompareFileIntergrity)\n";
}

std::string Entry(const std::string& path, const std::string& digest, const std::string& element = "FileAttributes") {
    std::string entry = "<";
    entry.append(element).append(" Path=\"").append(path).append("\" Sha256=\"").append(digest).append("\"/>");
    return entry;
}

// The check asks the host executable's folder, which is a folder of the test's own.
class Integrity : public testing::Test {
protected:
    Integrity() { fakeutil::Reset(); }
    ~Integrity() override { fakeutil::Reset(); }

    void WriteFile(const std::string& name, const std::string& bytes = kFileBytes) {
        WriteFileBytes(m_folder.Path() / name, bytes);
    }
    void WriteManifest(const std::string& text) {
        WriteFileBytes(m_folder.Path() / "config" / "CheckFileIntergrity.xml", text);
    }
    /** The worker's file and a manifest with these entries. */
    void Install(const std::string& entries) {
        WriteFile("KXVCR.exe");
        WriteManifest("<?xml version=\"1.0\"?><Files>" + entries + "</Files>");
    }
    bool Compare(const std::string& name = "KXVCR.exe") { return SystemEnvironment::CompareFileIntergrity(name); }
    std::string Base() const { return m_folder.Path().string(); }
    std::size_t Digests() const { return fakeutil::ArgumentsOf("DE::GetFileSha256Hex").size(); }

    TempFolder m_folder;
    kxtest::DebugLines m_lines;
    hooks::NarrowModuleNameHook m_moduleName{[this](HMODULE module, LPSTR buffer, DWORD size) {
        EXPECT_EQ(module, nullptr);
        EXPECT_EQ(size, 260u);
        EXPECT_EQ(std::count(buffer, buffer + size, '\0'), static_cast<std::ptrdiff_t>(size));
        const std::string path = (m_folder.Path() / "Host.exe").string();
        std::memcpy(buffer, path.c_str(), path.size());
        return static_cast<DWORD>(path.size());
    }};
};

TEST_F(Integrity, MatchingEntry_IsTrueAndSilent) {
    Install(Entry("KXVCR.exe", kDigest));
    EXPECT_TRUE(Compare());
    EXPECT_EQ(m_lines.Lines(), Lines());
    EXPECT_EQ(m_moduleName.Calls(), 1);
}

TEST_F(Integrity, MissingFile_IsNamedAndTheManifestIsNotLookedAt) {
    WriteManifest("<Files/>");
    EXPECT_FALSE(Compare());
    EXPECT_EQ(m_lines.Lines(), Lines{NoFile("KXVCR.exe")});
    EXPECT_EQ(fakeutil::Calls(), (Calls{{"DE::FileExists", Base() + "\\KXVCR.exe"}}));
}

TEST_F(Integrity, MissingManifest_IsNamed) {
    WriteFile("KXVCR.exe");
    EXPECT_FALSE(Compare());
    EXPECT_EQ(m_lines.Lines(), Lines{kNoManifest});
    EXPECT_EQ(fakeutil::Calls(), (Calls{{"DE::FileExists", Base() + "\\KXVCR.exe"},
                                        {"DE::FileExists", Base() + "\\config\\CheckFileIntergrity.xml"}}));
}

TEST_F(Integrity, BrokenManifest_IsNotLoaded) {
    for (const char* text : {"<Files><FileAttributes", "", "no xml", "<a></b>"}) {
        m_lines.Clear();
        WriteFile("KXVCR.exe");
        WriteManifest(text);
        EXPECT_FALSE(Compare());
        EXPECT_EQ(m_lines.Lines(), Lines{kNotLoaded}) << text;
    }
}

TEST_F(Integrity, EveryLoadError_IsAFailure) {
    Install(Entry("KXVCR.exe", kDigest));
    for (const int error : {1, 3, 18, -1}) {
        m_lines.Clear();
        fakeutil::ScriptLoadFile([error](const std::string&) { return error; });
        EXPECT_FALSE(Compare());
        EXPECT_EQ(m_lines.Lines(), Lines{kNotLoaded});
    }
    fakeutil::Reset();
    EXPECT_TRUE(Compare());
}

TEST_F(Integrity, NoRootElement_IsNamedWithItsBlank) {
    Install(Entry("KXVCR.exe", kDigest));
    fakeutil::ScriptRootElementIsNull([] { return true; });
    EXPECT_FALSE(Compare());
    EXPECT_EQ(m_lines.Lines(), Lines{kNoRoot});
}

TEST_F(Integrity, NoEntryElement_IsSilent) {
    for (const char* entries : {"", "text", "<Other Path=\"KXVCR.exe\"/>", "<fileattributes Path=\"KXVCR.exe\"/>"}) {
        Install(entries);
        EXPECT_FALSE(Compare());
    }
    EXPECT_EQ(m_lines.Lines(), Lines());
    EXPECT_EQ(Digests(), 0u);
}

TEST_F(Integrity, EntryDeeperThanTheRootsChildren_IsNotRead) {
    Install("<Group>" + Entry("KXVCR.exe", kDigest) + "</Group>");
    EXPECT_FALSE(Compare());
    EXPECT_EQ(m_lines.Lines(), Lines());
}

TEST_F(Integrity, AnyRootName_Counts) {
    WriteFile("KXVCR.exe");
    WriteManifest("<!-- comment --><FileAttributes>" + Entry("KXVCR.exe", kDigest) + "</FileAttributes>");
    EXPECT_TRUE(Compare());
}

TEST_F(Integrity, EntryWithoutDigest_LeavesTwoLinesAndTheWalkGoesOn) {
    Install("<FileAttributes Path=\"KXVCR.exe\"/>");
    EXPECT_FALSE(Compare());
    EXPECT_EQ(m_lines.Lines(), (Lines{kNoDigest, Mismatch("KXVCR.exe", kDigest, "")}));
    m_lines.Clear();
    Install("<FileAttributes Path=\"KXVCR.exe\"/>" + Entry("KXVCR.exe", kDigest));
    EXPECT_TRUE(Compare());
    EXPECT_EQ(m_lines.Lines(), (Lines{kNoDigest, Mismatch("KXVCR.exe", kDigest, "")}));
}

TEST_F(Integrity, EmptyDigest_IsAMismatchOnly) {
    Install(Entry("KXVCR.exe", ""));
    EXPECT_FALSE(Compare());
    EXPECT_EQ(m_lines.Lines(), Lines{Mismatch("KXVCR.exe", kDigest, "")});
}

TEST_F(Integrity, OtherDigest_IsNamed) {
    const std::string digest(kDigest);
    for (const std::string& stored : {std::string(kWrongDigest), std::string(kUpperDigest), " " + digest, digest + " ",
                                      digest.substr(1), digest + "0", digest.substr(0, 63)}) {
        m_lines.Clear();
        Install(Entry("KXVCR.exe", stored));
        EXPECT_FALSE(Compare());
        EXPECT_EQ(m_lines.Lines(), Lines{Mismatch("KXVCR.exe", kDigest, stored)});
    }
}

TEST_F(Integrity, WrongThenRight_IsTrueAfterOneLine) {
    Install(Entry("KXVCR.exe", kWrongDigest) + Entry("KXVCR.exe", kDigest) + Entry("KXVCR.exe", kWrongDigest));
    EXPECT_TRUE(Compare());
    EXPECT_EQ(m_lines.Lines(), Lines{Mismatch("KXVCR.exe", kDigest, kWrongDigest)});
    EXPECT_EQ(Digests(), 2u);
}

TEST_F(Integrity, EachMatchingEntry_ComputesTheDigestAfresh) {
    Install(Entry("a.dll", kDigest) + Entry("KXVCR.exe", kWrongDigest) + Entry("KXVCR.exe", kWrongDigest) +
            "<FileAttributes Path=\"KXVCR.exe\"/>" + Entry("b.dll", kDigest));
    int number = 0;
    fakeutil::ScriptFileSha256Hex([&](const std::string& path) {
        EXPECT_EQ(path, Base() + "\\KXVCR.exe");
        return "digest" + std::to_string(++number);
    });
    EXPECT_FALSE(Compare());
    EXPECT_EQ(m_lines.Lines(),
              (Lines{Mismatch("KXVCR.exe", "digest1", kWrongDigest), Mismatch("KXVCR.exe", "digest2", kWrongDigest),
                     kNoDigest, Mismatch("KXVCR.exe", "digest3", "")}));
}

TEST_F(Integrity, OtherPaths_DoNotMatch) {
    for (const char* path : {"kxvcr.exe", "KXVCR.EXE", ".\\KXVCR.exe", "config\\..\\KXVCR.exe", "\\KXVCR.exe",
                             " KXVCR.exe", "KXVCR.exe ", "KXVCR.ex", "KXVCR.exe.", ""}) {
        Install(Entry(path, kDigest));
        EXPECT_FALSE(Compare()) << path;
    }
    EXPECT_EQ(m_lines.Lines(), Lines());
    EXPECT_EQ(Digests(), 0u);
}

TEST_F(Integrity, EntryWithoutPath_DoesNotMatch) {
    Install(std::string("<FileAttributes Sha256=\"") + kDigest + "\"/>" + Entry("KXVCR.exe", kDigest));
    EXPECT_TRUE(Compare());
    EXPECT_EQ(m_lines.Lines(), Lines());
    EXPECT_EQ(Digests(), 1u);
}

TEST_F(Integrity, AttributeNames_AreCaseSensitive) {
    Install(std::string("<FileAttributes path=\"KXVCR.exe\" Sha256=\"") + kDigest + "\"/>");
    EXPECT_FALSE(Compare());
    EXPECT_EQ(Digests(), 0u);
}

TEST_F(Integrity, ElementsBeforeTheFirstEntry_AreNotRead) {
    Install(Entry("KXVCR.exe", kWrongDigest, "Other") + Entry("KXVCR.exe", kDigest));
    EXPECT_TRUE(Compare());
    EXPECT_EQ(m_lines.Lines(), Lines());
}

TEST_F(Integrity, SiblingsOfOtherNames_AreRead) {
    Install(Entry("a.dll", kDigest) + "<!-- c -->" + Entry("KXVCR.exe", kDigest, "Plugin"));
    EXPECT_TRUE(Compare());
    EXPECT_EQ(m_lines.Lines(), Lines());
}

TEST_F(Integrity, ElementTextAndOtherAttributes_AreIgnored) {
    Install(std::string("<FileAttributes Size=\"3\" Path=\"KXVCR.exe\" Sha256=\"") + kDigest +
            "\" X=\"y\">text<Child/></FileAttributes>");
    EXPECT_TRUE(Compare());
}

TEST_F(Integrity, EntitiesInThePath_AreResolved) {
    WriteFile("a&b.dll");
    WriteManifest("<r>" + Entry("a&amp;b.dll", kDigest) + "</r>");
    EXPECT_TRUE(Compare("a&b.dll"));
}

TEST_F(Integrity, FileInASubfolder_IsVerified) {
    WriteFile("plugins\\a.dll");
    WriteManifest("<r>" + Entry("plugins\\a.dll", kDigest) + "</r>");
    EXPECT_TRUE(Compare("plugins\\a.dll"));
    EXPECT_FALSE(Compare("plugins/a.dll"));
    EXPECT_EQ(m_lines.Lines(), Lines());
}

TEST_F(Integrity, FileThatCannotBeRead_NeverMatches) {
    Install(Entry("KXVCR.exe", kDigest));
    fakeutil::ScriptFileSha256Hex([](const std::string&) { return std::string(); });
    EXPECT_FALSE(Compare());
    EXPECT_EQ(m_lines.Lines(), Lines{Mismatch("KXVCR.exe", "", kDigest)});
}

TEST_F(Integrity, ChangedFile_IsSeenAtTheNextCall) {
    Install(Entry("KXVCR.exe", kDigest));
    EXPECT_TRUE(Compare());
    WriteFile("KXVCR.exe", "abd");
    EXPECT_FALSE(Compare());
    WriteFile("KXVCR.exe");
    EXPECT_TRUE(Compare());
    WriteManifest("<r>" + Entry("KXVCR.exe", kWrongDigest) + "</r>");
    EXPECT_FALSE(Compare());
}

TEST_F(Integrity, Calls_AreMadeInOrder) {
    Install(Entry("a.dll", kWrongDigest) + Entry("KXVCR.exe", kDigest));
    EXPECT_TRUE(Compare());
    Calls calls = fakeutil::Calls();
    std::erase_if(calls, [](const fakeutil::Call& call) {
        return call.function.ends_with("Null") || call.function.ends_with("Value");
    });
    const std::string file = Base() + "\\KXVCR.exe";
    const std::string manifest = Base() + "\\config\\CheckFileIntergrity.xml";
    EXPECT_EQ(calls, (Calls{{"DE::FileExists", file},
                            {"DE::FileExists", manifest},
                            {"KxXMLDocument::LoadFile", manifest},
                            {"KxXMLDocument::RootElement", ""},
                            {"KxXmlElement::FirstNode", "FileAttributes"},
                            {"KxXmlElement::FirstAttribute", "Path"},
                            {"KxXmlElement::NextSiblingElement", ""},
                            {"KxXmlElement::FirstAttribute", "Path"},
                            {"DE::GetFileSha256Hex", file},
                            {"KxXmlElement::FirstAttribute", "Sha256"}}));
}

TEST_F(Integrity, FileExistsByScript_DecidesAlone) {
    fakeutil::ScriptFileExists([](const std::string& path) { return path.ends_with("KXVCR.exe"); });
    EXPECT_FALSE(Compare());
    EXPECT_EQ(m_lines.Lines(), Lines{kNoManifest});
}

TEST_F(Integrity, LongName_IsNamedWhole) {
    const std::string name(1000, 'n');
    EXPECT_FALSE(Compare(name));
    EXPECT_EQ(m_lines.Lines(), Lines{NoFile(name)});
}

TEST_F(Integrity, NameOutsideAscii_IsWidenedByteByByte) {
    EXPECT_FALSE(Compare("caf\xE9.exe"));
    EXPECT_EQ(m_lines.Lines(), Lines{L"filePath is not exist: caf\u00E9.exe(CheckFileAndXmlExist)\n"});
}

TEST_F(Integrity, LibraryThatThrows_IsAFailure) {
    Install(Entry("KXVCR.exe", kDigest));
    fakeutil::ScriptLoadFile([](const std::string&) -> int { throw std::bad_alloc(); });
    EXPECT_NO_THROW(EXPECT_FALSE(Compare()));
    fakeutil::Reset();
    fakeutil::ScriptFileExists([](const std::string&) -> bool { throw std::bad_alloc(); });
    EXPECT_NO_THROW(EXPECT_FALSE(Compare()));
    fakeutil::Reset();
    EXPECT_TRUE(Compare());
}

TEST_F(Integrity, CheckFileAndXmlExist_ExtendsBothPaths) {
    Install("");
    std::string filePath = Base();
    std::string xmlPath = Base();
    EXPECT_TRUE(CheckFileAndXmlExist("KXVCR.exe", filePath, xmlPath));
    EXPECT_EQ(filePath, Base() + "\\KXVCR.exe");
    EXPECT_EQ(xmlPath, Base() + "\\config\\CheckFileIntergrity.xml");
    EXPECT_EQ(m_lines.Lines(), Lines());
}

TEST_F(Integrity, CheckFileAndXmlExist_MissingFile_LeavesTheManifestsPath) {
    std::string filePath = Base();
    std::string xmlPath = Base();
    EXPECT_FALSE(CheckFileAndXmlExist("sub\\KXVCR.exe", filePath, xmlPath));
    EXPECT_EQ(filePath, Base() + "\\sub\\KXVCR.exe");
    EXPECT_EQ(xmlPath, Base());
    EXPECT_EQ(m_lines.Lines(), Lines{NoFile("sub\\KXVCR.exe")});
}

TEST_F(Integrity, CheckFileAndXmlExist_MissingManifest_IsNamedWithItsBlank) {
    WriteFile("KXVCR.exe");
    std::string filePath = Base();
    std::string xmlPath = Base();
    EXPECT_FALSE(CheckFileAndXmlExist("KXVCR.exe", filePath, xmlPath));
    EXPECT_EQ(xmlPath, Base() + "\\config\\CheckFileIntergrity.xml");
    EXPECT_EQ(m_lines.Lines(), Lines{kNoManifest});
}

TEST(IntegrityOfTheHost, OwnFolder_IsTheBase) {
    fakeutil::Reset();
    EXPECT_TRUE(SystemEnvironment::CompareFileIntergrity("KXVCR.exe"));
    EXPECT_EQ(fakeutil::ArgumentsOf("DE::FileExists"),
              (std::vector<std::string>{(OwnFolder() / "KXVCR.exe").string(),
                                        (OwnFolder() / "config" / "CheckFileIntergrity.xml").string()}));
}

} // namespace
