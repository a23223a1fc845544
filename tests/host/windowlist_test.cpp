// Which window a user means, and how lists of windows and displays are printed.
#include "host/listing.h"
#include "host/windowlist.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace kxrecord {
namespace {

WindowInfo Window(std::uint32_t handle, const wchar_t* title) {
    return {handle, title, L"editor.exe", false, {10, -20, 640, 360}, false};
}

WindowInfo Minimized(std::uint32_t handle, const wchar_t* title) {
    return {handle, title, {}, true, {}, false};
}

const std::vector<WindowInfo> kWindows = {Window(0x1002a, L"Letter - Editor"), Window(0x1002c, L"letter"),
                                          Window(0x1002e, L"Map of \u00c4gypten"), Minimized(0x10030, L"Player")};

std::uint32_t Chosen(const std::wstring& wanted, const std::vector<WindowInfo>& windows = kWindows) {
    const std::variant<WindowInfo, Failure> chosen = ChooseWindow(windows, wanted);
    const auto* const window = std::get_if<WindowInfo>(&chosen);
    return window != nullptr ? window->handle : 0;
}

std::wstring Refused(const std::wstring& wanted, const std::vector<WindowInfo>& windows = kWindows) {
    const std::variant<WindowInfo, Failure> chosen = ChooseWindow(windows, wanted);
    const auto* const failure = std::get_if<Failure>(&chosen);
    if (failure == nullptr) {
        return L"chosen";
    }
    EXPECT_EQ(failure->exit, Exit::NoWindow);
    return failure->sentence;
}

TEST(ChooseWindow, PartOfOneTitle_IsEnoughInWhateverCase) {
    EXPECT_EQ(Chosen(L"EDITOR"), 0x1002au);
    EXPECT_EQ(Chosen(L"\u00e4gyp"), 0x1002eu);
}

TEST(ChooseWindow, WholeTitle_GoesBeforeAPart) {
    EXPECT_EQ(Chosen(L"Letter"), 0x1002cu);
}

TEST(ChooseWindow, SeveralWindows_AreNamed) {
    EXPECT_EQ(Refused(L"lett"),
              L"2 windows go with \"lett\": \"Letter - Editor\" (0x0001002a), \"letter\" (0x0001002c); "
              L"give more of the title, or the handle");
}

TEST(ChooseWindow, SeveralWindowsWithTheWholeTitle_AreNamed) {
    EXPECT_EQ(
        Refused(L"same", {Window(1, L"Same"), Window(2, L"same"), Window(3, L"same again")}),
        L"2 windows go with \"same\": \"Same\" (0x00000001), \"same\" (0x00000002); give more of the title, or the "
        L"handle");
}

TEST(ChooseWindow, ManyWindows_AreCounted) {
    const std::vector<WindowInfo> many(11, Window(1, L"a"));
    const std::wstring sentence = Refused(L"a", many);
    EXPECT_TRUE(sentence.ends_with(L"\"a\" (0x00000001) and 3 more; give more of the title, or the handle"));
}

TEST(ChooseWindow, NoWindow_PointsAtTheList) {
    EXPECT_EQ(Refused(L"nothing\t"),
              L"no window's title has \"nothing\\x09\" in it; \"kxrecord windows\" lists what can be recorded");
    EXPECT_EQ(Refused(L"0x99"), L"there is no window 0x99 to record; \"kxrecord windows\" lists what can be recorded");
}

TEST(ChooseWindow, Handle_NamesAWindow) {
    EXPECT_EQ(Chosen(L"0x0001002C"), 0x1002cu);
    EXPECT_EQ(Chosen(L"0x1002c"), 0x1002cu);
}

TEST(ChooseWindow, TextThatIsNoHandle_IsATitle) {
    EXPECT_EQ(Chosen(L"0x", {Window(1, L"Dump of 0x")}), 1u);
    EXPECT_EQ(Chosen(L"0x123456789", {Window(1, L"at 0x123456789")}), 1u);
    EXPECT_EQ(Chosen(L"0xyz", {Window(1, L"0XYZ")}), 1u);
}

TEST(ChooseWindow, MinimizedWindow_MustBeRestoredFirst) {
    EXPECT_EQ(Refused(L"play"), L"the window \"Player\" (0x00010030) is minimised; restore it first");
}

// The title of a terminal has the command line in it, and with that the title that is looked for.
TEST(ChooseWindow, OwnTerminal_IsFoundByItsHandleAlone) {
    WindowInfo terminal = Window(7, L"kxrecord record a.mp4 --window map");
    terminal.isOwnConsole = true;
    std::vector<WindowInfo> windows = kWindows;
    windows.push_back(terminal);
    EXPECT_EQ(Chosen(L"map", windows), 0x1002eu);
    EXPECT_EQ(Chosen(L"0x7", windows), 7u);
}

TEST(WindowList, Lines_StandInColumns) {
    EXPECT_EQ(WindowLines({Window(0x1002a, L"Two\nlines"), Minimized(0x10030, L"Player")}),
              L"0x0001002a  640x360 from 10,-20 on  editor.exe  Two\\x0alines\n"
              L"0x00010030  minimised                           Player\n");
}

TEST(WindowList, WithoutAWindow_SaysSo) {
    EXPECT_EQ(WindowLines({}), L"There is no window to record\n");
}

TEST(WindowList, Json_HasEveryWindow) {
    EXPECT_EQ(
        nlohmann::ordered_json::parse(WindowsJson({Window(0x1002a, L"Letter"), Minimized(0x10030, L"Player")})).dump(),
        R"({"schema":2,"windows":[{"handle":65578,"title":"Letter","program":"editor.exe","minimized":false,)"
        R"("left":10,"top":-20,"width":640,"height":360},{"handle":65584,"title":"Player","program":null,)"
        R"("minimized":true,"left":null,"top":null,"width":null,"height":null}]})");
    EXPECT_EQ(nlohmann::ordered_json::parse(WindowsJson({})).dump(), R"({"schema":2,"windows":[]})");
}

const std::vector<Display> kDisplays = {{{0, 0, 1920, 1080}, true, 150, L"\\\\.\\DISPLAY2", L"Panel"},
                                        {{-800, 0, 800, 600}, false, 0, L"\\\\.\\DISPLAY1", {}}};

TEST(DisplayList, Lines_StandInColumns) {
    EXPECT_EQ(DisplayLines(kDisplays), L"1  1920x1080 from 0,0 on   primary  150 %  \\\\.\\DISPLAY2  Panel\n"
                                       L"2  800x600 from -800,0 on           ?      \\\\.\\DISPLAY1\n");
}

TEST(DisplayList, WithoutADisplay_SaysSo) {
    EXPECT_EQ(DisplayLines({}), L"There is no screen to record\n");
}

TEST(DisplayList, Json_HasEveryDisplayWithItsNumber) {
    EXPECT_EQ(nlohmann::ordered_json::parse(DisplaysJson(kDisplays)).dump(),
              R"({"schema":2,"displays":[{"monitor":1,"left":0,"top":0,"width":1920,"height":1080,"primary":true,)"
              R"("scalingPercent":150,"name":"\\\\.\\DISPLAY2","description":"Panel"},{"monitor":2,"left":-800,)"
              R"("top":0,"width":800,"height":600,"primary":false,"scalingPercent":null,"name":"\\\\.\\DISPLAY1",)"
              R"("description":null}]})");
}

const std::vector<kx::SoundEndpoint> kSounds = {{L"{A}", L"Speakers", false, true},
                                                {L"{B}", L"Headset \"USB\"", true, false}};

TEST(SoundList, Lines_HaveSourceNameAndId) {
    EXPECT_EQ(SoundLines(kSounds), L"machine     default  Speakers       {A}\n"
                                   L"microphone           Headset \"USB\"  {B}\n");
}

TEST(SoundList, NoDevice_IsASentence) {
    EXPECT_EQ(SoundLines({}), L"There is no sound device\n");
}

TEST(SoundList, Json_HasEveryKey) {
    EXPECT_EQ(nlohmann::ordered_json::parse(SoundsJson(kSounds)).dump(),
              R"({"schema":2,"sounds":[)"
              R"({"id":"{A}","name":"Speakers","source":"machine","default":true},)"
              R"({"id":"{B}","name":"Headset \"USB\"","source":"microphone","default":false}]})");
}

} // namespace
} // namespace kxrecord
