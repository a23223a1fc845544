// The device identifier. It is kept until the process ends, so each scenario has a process of its own.
#include "systemenvironment.h"

#include "queryfixture.h"
#include "support/childprocess.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace querytest {

namespace {

const std::wstring kBios = L"HARDWARE\\DESCRIPTION\\System\\BIOS";

constexpr std::chrono::seconds kMeetingLimit(20);
const std::string kDefaultId = "21111111111111111111";

// What a scenario saw, printed for the parent: identifiers, calls of the utility library and debugger lines.
class Protocol {
public:
    void Ask() {
        std::printf("id %s\n", SystemEnvironment::GetDeviceId().c_str());
        const std::vector<Call> calls = fakeutil::Calls();
        for (; m_printed < calls.size(); ++m_printed) {
            std::printf("%s", Text(calls[m_printed]).c_str());
        }
        for (const std::wstring& line : m_lines.Lines()) {
            std::printf("line %ls", line.c_str());
        }
        m_lines.Clear();
        const auto copies = fakeutil::NarrowCopies();
        for (const void* block : copies) {
            if (m_freed.CountOf(block) != std::ranges::count(copies, block)) {
                std::printf("a narrow copy is not freed\n");
            }
        }
        if (fakeutil::LiveWmiObjects() != 0) {
            std::printf("a WMI object lives\n");
        }
    }

    static std::string Text(const Call& call) {
        std::ostringstream text;
        text << call << '\n';
        return text.str();
    }

private:
    std::size_t m_printed = 0;
    querytest::FreedBlocks m_freed;
    kxtest::DebugLines m_lines;
};

void StoreSerial(RegistryData data) {
    fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kBios, L"BIOSSerialNumber", std::move(data));
}
void AnswerWmi(std::wstring serial) {
    fakeutil::ScriptWmi(
        [serial = std::move(serial)](const std::wstring&, const std::wstring&, const std::wstring&) { return serial; });
}
void NoNarrowCopies() {
    fakeutil::ScriptNarrowCopyFails([](const std::wstring&) { return true; });
}

// What the parent expects to have been printed.
std::string Id(const std::string& id) {
    return "id " + id + "\n";
}
std::string ReadSerial() {
    return Protocol::Text(call::ReadText(HKEY_LOCAL_MACHINE, kBios, L"BIOSSerialNumber", kFullAccess));
}
std::string WriteSerial(const std::wstring& serial) {
    return Protocol::Text(call::WriteText(HKEY_LOCAL_MACHINE, kBios, L"BIOSSerialNumber", serial, kFullAccess));
}
std::string AskWmi() {
    return Protocol::Text({"WMI::WMI", "ROOT\\CIMV2"}) +
           Protocol::Text(
               {"WMI::SelectStr", fakeutil::WmiQuery(L"ROOT\\CIMV2", L"SELECT * FROM Win32_BIOS", L"SerialNumber")});
}
const std::string kTooLongLine = "line strcpy_s fail(SystemEnvironment::GetDeviceId)\n";

void ExpectScenario(const std::string& name, const std::string& expected) {
    const kxtest::ChildResult result = kxtest::RunChild(name);
    std::string output = result.output;
    std::erase(output, '\r');
    EXPECT_EQ(output, expected);
    EXPECT_EQ(result.exitCode, 0u);
}

const kxtest::ChildScenario kRegistry("registry", [] {
    Protocol protocol;
    StoreSerial(std::wstring(L"SN-1"));
    AnswerWmi(L"SN-2");
    protocol.Ask();
    StoreSerial(std::wstring(L"SN-3"));
    protocol.Ask();
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    protocol.Ask();
});
TEST(DeviceId, SerialInTheRegistry_IsKeptAndNobodyIsAskedAgain) {
    ExpectScenario("registry", Id("SN-1") + ReadSerial() + Id("SN-1") + Id("SN-1"));
}

const kxtest::ChildScenario kRegistryAsItIs("registry-as-it-is", [] {
    Protocol protocol;
    StoreSerial(std::wstring(L" SN_\u00e9 "));
    protocol.Ask();
});
TEST(DeviceId, SerialInTheRegistry_IsGivenAsItIs) {
    ExpectScenario("registry-as-it-is", Id(" SN_\xe9 ") + ReadSerial());
}

const kxtest::ChildScenario kLongest("longest", [] {
    Protocol protocol;
    StoreSerial(std::wstring(63, L'x'));
    protocol.Ask();
    protocol.Ask();
});
TEST(DeviceId, SerialOf63Characters_IsKept) {
    ExpectScenario("longest", Id(std::string(63, 'x')) + ReadSerial() + Id(std::string(63, 'x')));
}

const kxtest::ChildScenario kTooLong("too-long", [] {
    Protocol protocol;
    AnswerWmi(L"SN-2");
    for (const std::size_t length : {std::size_t{64}, std::size_t{65}, kLongLength}) {
        StoreSerial(std::wstring(length, L'x'));
        protocol.Ask();
    }
    StoreSerial(std::wstring(L"SN-1"));
    protocol.Ask();
});
TEST(DeviceId, SerialOf64Characters_DefaultIsReportedAndNotKept) {
    const std::string tooLong = Id(kDefaultId) + ReadSerial() + kTooLongLine;
    ExpectScenario("too-long", tooLong + tooLong + tooLong + Id("SN-1") + ReadSerial());
}

const kxtest::ChildScenario kRegistryNoCopy("registry-no-copy", [] {
    Protocol protocol;
    StoreSerial(std::wstring(L"SN-1"));
    AnswerWmi(L"SN-2");
    NoNarrowCopies();
    protocol.Ask();
    fakeutil::ScriptNarrowCopyFails(nullptr);
    protocol.Ask();
});
TEST(DeviceId, NoNarrowCopyOfTheRegistrysSerial_DefaultIsNotKeptAndWmiIsNotAsked) {
    ExpectScenario("registry-no-copy", Id(kDefaultId) + ReadSerial() + Id("SN-1") + ReadSerial());
}

const kxtest::ChildScenario kWmi("wmi", [] {
    Protocol protocol;
    AnswerWmi(L"SN-2");
    protocol.Ask();
    AnswerWmi(L"SN-3");
    StoreSerial(std::wstring(L"SN-1"));
    protocol.Ask();
});
TEST(DeviceId, NoSerialInTheRegistry_WmisIsWrittenAndKept) {
    ExpectScenario("wmi", Id("SN-2") + ReadSerial() + AskWmi() + WriteSerial(L"SN-2") + Id("SN-2"));
}

const kxtest::ChildScenario kUnusable("unusable", [] {
    Protocol protocol;
    StoreSerial(std::wstring());
    protocol.Ask();
    StoreSerial(1ul);
    protocol.Ask();
    AnswerWmi(L"SN-2");
    protocol.Ask();
});
TEST(DeviceId, EmptyTextOrNumberInTheRegistry_WmiIsAsked) {
    const std::string nothing = Id(kDefaultId) + ReadSerial() + AskWmi() + WriteSerial(L"");
    ExpectScenario("unusable", nothing + nothing + Id("SN-2") + ReadSerial() + AskWmi() + WriteSerial(L"SN-2"));
}

const kxtest::ChildScenario kNothing("nothing", [] {
    Protocol protocol;
    protocol.Ask();
    protocol.Ask();
    protocol.Ask();
});
TEST(DeviceId, NoSerialAnywhere_DefaultWithAQueryEachTime) {
    const std::string nothing = Id(kDefaultId) + ReadSerial() + AskWmi() + WriteSerial(L"");
    ExpectScenario("nothing", nothing + nothing + nothing);
}

const kxtest::ChildScenario kWmiLong("wmi-long", [] {
    Protocol protocol;
    AnswerWmi(std::wstring(1000, L'x'));
    protocol.Ask();
    protocol.Ask();
});
TEST(DeviceId, LongSerialFromWmi_IsWholeAndKept) {
    const std::string serial(1000, 'x');
    ExpectScenario("wmi-long",
                   Id(serial) + ReadSerial() + AskWmi() + WriteSerial(std::wstring(1000, L'x')) + Id(serial));
}

const kxtest::ChildScenario kWmiNoCopy("wmi-no-copy", [] {
    Protocol protocol;
    AnswerWmi(L"SN-2");
    NoNarrowCopies();
    protocol.Ask();
    fakeutil::ScriptNarrowCopyFails(nullptr);
    protocol.Ask();
});
TEST(DeviceId, NoNarrowCopyOfWmisSerial_DefaultIsNotKeptButTheSerialIsWritten) {
    ExpectScenario("wmi-no-copy",
                   Id(kDefaultId) + ReadSerial() + AskWmi() + WriteSerial(L"SN-2") + Id("SN-2") + ReadSerial());
}

const kxtest::ChildScenario kWriteFails("write-fails", [] {
    Protocol protocol;
    AnswerWmi(L"SN-2");
    fakeutil::FailRegistryWrite(1);
    protocol.Ask();
    protocol.Ask();
});
TEST(DeviceId, WriteFails_WmisSerialIsKept) {
    ExpectScenario("write-fails", Id("SN-2") + ReadSerial() + AskWmi() + WriteSerial(L"SN-2") + Id("SN-2"));
}

const kxtest::ChildScenario kRefused("refused", [] {
    Protocol protocol;
    StoreSerial(std::wstring(L"SN-1"));
    AnswerWmi(L"SN-2");
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    protocol.Ask();
});
TEST(DeviceId, RegistryRefused_WmiIsAsked) {
    ExpectScenario("refused", Id("SN-2") + ReadSerial() + AskWmi() + WriteSerial(L"SN-2"));
}

const kxtest::ChildScenario kThrows("throws", [] {
    for (const char* function :
         {"DE::Registry::GetValue", "WMI::WMI", "WMI::SelectStr", "DE::Registry::SetValue", "DE::WcharToChar"}) {
        AnswerWmi(std::string(function) == "DE::WcharToChar" ? L"SN-2" : L"");
        fakeutil::ThrowFrom(function);
        const std::string id = SystemEnvironment::GetDeviceId();
        std::printf("%s [%s]%s\n", function, id.c_str(), fakeutil::IsThrowPending() ? " pending" : "");
    }
    fakeutil::Reset();
    Protocol protocol;
    StoreSerial(std::wstring(L"SN-1"));
    protocol.Ask();
});
TEST(DeviceId, AnyCallThrows_DefaultAndNothingIsKept) {
    ExpectScenario("throws", "DE::Registry::GetValue [21111111111111111111]\nWMI::WMI [21111111111111111111]\n"
                             "WMI::SelectStr [21111111111111111111]\nDE::Registry::SetValue [21111111111111111111]\n"
                             "DE::WcharToChar [21111111111111111111]\n" +
                                 Id("SN-1") + ReadSerial());
}

// Waits until both threads have come.
class Meeting {
public:
    bool Join() {
        std::unique_lock guard(m_mutex);
        ++m_here;
        m_changed.notify_all();
        return m_changed.wait_for(guard, kMeetingLimit, [this] { return m_here >= 2; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_here = 0;
};

const kxtest::ChildScenario kTwoThreads("two-threads", [] {
    Meeting meeting;
    fakeutil::ScriptWmi([&](const std::wstring&, const std::wstring&, const std::wstring&) -> std::wstring {
        return meeting.Join() ? L"SN-2" : L"nobody came";
    });
    std::string ids[2];
    {
        const std::jthread other([&] { ids[0] = SystemEnvironment::GetDeviceId(); });
        ids[1] = SystemEnvironment::GetDeviceId();
    }
    const std::size_t queries = fakeutil::ArgumentsOf("WMI::SelectStr").size();
    std::printf("%s %s %zu", ids[0].c_str(), ids[1].c_str(), queries);
    fakeutil::Reset();
    std::printf(" %s %zu", SystemEnvironment::GetDeviceId().c_str(), fakeutil::Calls().size());
});
TEST(DeviceId, TwoThreadsThatFindNothingKept_BothAskAndAgree) {
    ExpectScenario("two-threads", "SN-2 SN-2 2 SN-2 0");
}

const kxtest::ChildScenario kManyThreads("many-threads", [] {
    constexpr int kThreads = 8;
    constexpr int kRounds = 500;
    StoreSerial(std::wstring(40, L'x'));
    std::atomic<int> others{0};
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&] {
                for (int round = 0; round < kRounds; ++round) {
                    others += SystemEnvironment::GetDeviceId() == std::string(40, 'x') ? 0 : 1;
                }
            });
        }
    }
    const std::size_t reads = fakeutil::Calls().size();
    std::printf("%d %s", others.load(), reads >= 1 && reads <= kThreads ? "few reads" : "many reads");
});
TEST(DeviceId, ManyThreads_AllGetTheSame) {
    ExpectScenario("many-threads", "0 few reads");
}

} // namespace

} // namespace querytest
