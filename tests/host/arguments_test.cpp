// The command line, without anything being done.
#include "host/arguments.h"

#include "sdk/vcr/workerprotocol.h"

#include <gtest/gtest.h>

#include <sstream>

namespace kxrecord {
namespace {

Task Parsed(std::vector<std::string> arguments) {
    return ParseArguments(std::move(arguments), "kxrecord 9.9.9");
}

RecordOptions Recording(std::vector<std::string> more) {
    more.insert(more.begin(), {"record", "a.mp4"});
    const Task task = Parsed(std::move(more));
    const auto* const notice = std::get_if<Notice>(&task);
    EXPECT_EQ(notice, nullptr) << (notice != nullptr ? notice->complaint : "");
    return notice != nullptr ? RecordOptions{} : std::get<RecordOptions>(task);
}

std::string Complaint(std::vector<std::string> arguments) {
    const Task task = Parsed(std::move(arguments));
    const auto* const notice = std::get_if<Notice>(&task);
    if (notice == nullptr) {
        return "accepted";
    }
    EXPECT_EQ(notice->exit, Exit::BadArguments);
    EXPECT_EQ(notice->output, "");
    return notice->complaint;
}

TEST(Arguments, RecordWithoutOptions_LeavesEverythingToTheWorker) {
    const RecordOptions options = Recording({});
    EXPECT_EQ(options.file, L"a.mp4");
    EXPECT_FALSE(options.overwrite);
    EXPECT_FALSE(options.session.length);
    EXPECT_EQ(options.session.verbosity, Verbosity::Normal);
    const KxScreenRecord::ScreenRecordParam& picture = options.session.picture;
    EXPECT_EQ(picture.width, 0u);
    EXPECT_EQ(picture.quality, 0u);
    EXPECT_EQ(picture.bitRate, 0u);
    EXPECT_EQ(picture.streams, 0u);
}

TEST(Arguments, RecordWithOptions_HasThemInThePicture) {
    const RecordOptions options =
        Recording({"--fps", "10", "--region", "-5,6,70,80", "--quality", "33", "--bitrate", "500", "--monitor", "2",
                   "--cursor", "--seconds", "1.5", "--overwrite", "--quiet"});
    const KxScreenRecord::ScreenRecordParam& picture = options.session.picture;
    EXPECT_EQ(picture.framesPerSecond, 10u);
    EXPECT_EQ(picture.left, -5);
    EXPECT_EQ(picture.top, 6);
    EXPECT_EQ(picture.width, 70u);
    EXPECT_EQ(picture.height, 80u);
    EXPECT_EQ(picture.quality, 33u);
    EXPECT_EQ(picture.bitRate, 500u);
    EXPECT_EQ(picture.monitor, 2u);
    EXPECT_EQ(picture.drawCursor, 1u);
    EXPECT_EQ(options.session.length, std::chrono::milliseconds(1500));
    EXPECT_TRUE(options.overwrite);
    EXPECT_EQ(options.session.verbosity, Verbosity::Quiet);
}

TEST(Arguments, Window_IsHandedOnAsItIsGiven) {
    EXPECT_EQ(Recording({"--window", "Ein Br\xc3\xa4tt"}).session.window, L"Ein Br\u00e4tt");
    EXPECT_EQ(std::get<LiveOptions>(Parsed({"live", "--window", "0x1002a"})).session.window, L"0x1002a");
    EXPECT_EQ(Recording({}).session.window, L"");
}

TEST(Arguments, Lists_AreAskedForByTheirCommand) {
    const auto windows = std::get<ListOptions>(Parsed({"windows"}));
    EXPECT_EQ(windows.what, Listed::Windows);
    EXPECT_FALSE(windows.json);
    const auto displays = std::get<ListOptions>(Parsed({"displays", "--json"}));
    EXPECT_EQ(displays.what, Listed::Displays);
    EXPECT_TRUE(displays.json);
}

TEST(Arguments, QualityByName_IsANumber) {
    EXPECT_EQ(Recording({"--quality", "standard"}).session.picture.quality, kxvcr::kDefaultQuality);
    EXPECT_LT(Recording({"--quality", "small"}).session.picture.quality, kxvcr::kDefaultQuality);
    EXPECT_GT(Recording({"--quality", "sharp"}).session.picture.quality, kxvcr::kDefaultQuality);
}

TEST(Arguments, ReplayIntoWebM_IsKeptAsVp9) {
    const auto streams = [](const char* file) {
        return std::get<RecordOptions>(Parsed({"record", file, "--replay", "5"})).session.picture.streams;
    };
    EXPECT_EQ(streams("a.WebM"), kxvcr::kStreamVp9);
    EXPECT_EQ(streams("a.mp4"), 0u);
    EXPECT_EQ(std::get<RecordOptions>(Parsed({"record", "a.webm"})).session.picture.streams, 0u);
}

TEST(Arguments, Sound_IsAFlagForEachSource) {
    const auto streams = [](const char* sound) { return Recording({"--sound", sound}).session.picture.streams; };
    EXPECT_EQ(streams("machine"), kxvcr::kStreamMachineSound);
    EXPECT_EQ(streams("microphone"), kxvcr::kStreamMicrophone);
    EXPECT_EQ(streams("both"), kxvcr::kStreamMachineSound | kxvcr::kStreamMicrophone);
}

TEST(Arguments, SoundDevice_IsThatOfTheSource) {
    const SoundDevices machine = Recording({"--sound", "machine", "--sound-device", "USB"}).session.soundDevices;
    EXPECT_EQ(machine.machine, L"USB");
    EXPECT_EQ(machine.microphone, L"");
    const SoundDevices microphone = Recording({"--sound", "microphone", "--sound-device", "USB"}).session.soundDevices;
    EXPECT_EQ(microphone.machine, L"");
    EXPECT_EQ(microphone.microphone, L"USB");
}

TEST(Arguments, SoundDevicesOfBoth_AreTheMachinesAndThenTheMicrophones) {
    const SoundDevices both =
        Recording({"--sound", "both", "--sound-device", "one", "--sound-device", "two"}).session.soundDevices;
    EXPECT_EQ(both.machine, L"one");
    EXPECT_EQ(both.microphone, L"two");
}

struct BadArgument {
    std::vector<std::string> arguments;
    std::string complaint; ///< begins so, behind the program's name
};

TEST(Arguments, BadValue_IsSaidWithItsName) {
    const BadArgument rows[] = {
        {{"paint"},
         "there is no command \"paint\"; the commands are record, live, windows, displays, sounds, info, "
         "manifest, completion\n"},
        {{"record", ""}, "FILE: \"\" ends in none of .mp4, .webm and .mkv"},
        {{"record", "a.avi"}, "FILE: \"a.avi\" ends in none of .mp4, .webm and .mkv"},
        {{"record", "a.mp4", "--seconds", "nan"}, "--seconds: \"nan\" is not a length from 0.1 to 604800 seconds"},
        {{"record", "a.mp4", "--seconds", "inf"}, "--seconds: \"inf\" is not a length from 0.1 to 604800 seconds"},
        {{"record", "a.mp4", "--seconds", "0"}, "--seconds: \"0\" is not a length"},
        {{"record", "a.mp4", "--seconds", "604801"}, "--seconds: \"604801\" is not a length"},
        {{"record", "a.mp4", "--seconds", "1s"}, "--seconds: \"1s\" is not a length"},
        {{"record", "a.mp4", "--fps", "61"}, "--fps: "},
        {{"record", "a.mp4", "--sound", "radio"}, "--sound: radio not in {machine,microphone,both}"},
        {{"record", "a.mp4", "--sound-device", "USB"}, "--sound-device requires --sound"},
        {{"record", "a.mp4", "--sound", "both", "--sound-device", "USB"},
         "--sound-device: with both it is given twice, the machine's first"},
        {{"record", "a.mp4", "--sound", "machine", "--sound-device", "a", "--sound-device", "b"},
         "--sound-device: it is given twice only with --sound both"},
        {{"record", "a.mp4", "--region", "1,2,3"}, "--region: \"1,2,3\" is not X,Y,W,H"},
        {{"record", "a.mp4", "--region", "0,0,0,5"}, "--region: \"0,0,0,5\" is not X,Y,W,H"},
        {{"record", "a.mp4", "--region", "1,2,3,4,5"}, "--region: \"1,2,3,4,5\" is not X,Y,W,H"},
        {{"record", "a.mp4", "--quality", "101"}, "--quality: \"101\" is none of small, standard and sharp"},
        {{"record", "a.mp4", "--quality", "best"}, "--quality: \"best\" is none of small, standard and sharp"},
        {{"record", "a.mp4", "--bitrate", "0"}, "--bitrate: "},
        {{"record", "a.mp4", "--replay", "0"}, "--replay: "},
        {{"record", "a.mp4", "--quiet", "--verbose"}, "--quiet: does not go with --verbose"},
        {{"record", "a.mp4", "--window", ""}, "--window: a part of the window's title is missing"},
        {{"record", "a.mp4", "--window", "x", "--monitor", "1"}, "--monitor excludes --window"},
        {{"live", "--window", "x", "--region", "0,0,5,5"}, "--region excludes --window"},
        {{"live", "--port", "65536"}, "--port: "},
        {{"live", "--clients", "65"}, "--clients: "},
        {{"info", "--function", "Saver"}, "--function: \"Saver\" is not a group and a function with a slash"},
        {{"info", "--function", "/Saver"}, "--function: \"/Saver\" is not"},
        {{"info", "--log-type", "-1"}, "--log-type: "},
        {{"manifest"}, "FILE is required"},
        {{}, "A subcommand is required"},
    };
    for (const BadArgument& row : rows) {
        const std::string complaint = Complaint(row.arguments);
        EXPECT_TRUE(complaint.starts_with("kxrecord: " + row.complaint))
            << complaint << " instead of " << row.complaint;
    }
}

TEST(Arguments, Help_FitsEightyColumnsAndListsEveryExitCodeOnce) {
    for (const char* const command : {"record", "live", "windows", "displays", "info", "manifest", "completion"}) {
        const Notice notice = std::get<Notice>(Parsed({command, "--help"}));
        EXPECT_EQ(notice.exit, Exit::Success);
        std::istringstream lines(notice.output);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(line.size(), 80u) << line;
        }
    }
    const std::string help = std::get<Notice>(Parsed({"--help"})).output;
    for (const ExitMeaning& row : kExits) {
        const std::string line = std::to_string(static_cast<int>(row.code)) + "  " + row.meaning + "\n";
        const std::size_t found = help.find(line);
        EXPECT_NE(found, std::string::npos) << line;
        EXPECT_EQ(help.find(line, found + 1), std::string::npos) << line;
    }
}

TEST(Arguments, Version_IsWhatWasGiven) {
    const Notice notice = std::get<Notice>(Parsed({"--version"}));
    EXPECT_EQ(notice.exit, Exit::Success);
    EXPECT_EQ(notice.output, "kxrecord 9.9.9\n");
}

TEST(Wrapping, LongLine_GoesOnInTheColumnOfItsDescription) {
    EXPECT_EQ(Wrapped("  --a  one two three four\nshort\n", 16), "  --a  one two\n       three\n       four\nshort\n");
}

TEST(Wrapping, WordThatIsTooLong_StaysWhole) {
    EXPECT_EQ(Wrapped("abcdefghij\n", 4), "abcdefghij\n");
}

} // namespace
} // namespace kxrecord
