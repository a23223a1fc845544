// The command line: options, their limits and the help. What is wrong with an argument is said with its name.
#include "host/arguments.h"

#include "common/win/utf8.h"
#include "host/completion.h"

#include "sdk/vcr/workerprotocol.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

namespace kxrecord {

namespace {

constexpr char kDescription[] =
    "Records the screen to a file or serves it live, with the worker KXVCR.exe beside this program, and tells what the "
    "library knows about the machine.";
constexpr double kShortestSeconds = 0.1;
constexpr double kLongestSeconds = 7 * 24 * 3600.0;
constexpr unsigned int kLongestTimeoutMs = 3600000;
constexpr char kComplaintPrefix[] = "kxrecord: ";
constexpr std::size_t kHelpWidth = 80;
constexpr std::size_t kOptionColumn = 27;

struct QualityName {
    const char* name;
    std::uint32_t quality;
};

constexpr QualityName kQualities[] = {{"small", 60}, {"standard", kxvcr::kDefaultQuality}, {"sharp", 95}};

struct Arguments {
    std::string file;
    bool overwrite = false;
    double seconds = 0;
    std::string region;
    std::string window;
    std::string quality;
    bool cursor = false;
    std::string sound;
    std::vector<std::string> soundDevices;
    unsigned int replaySeconds = 0;
    bool isQuiet = false;
    bool isVerbose = false;
    SessionOptions session;
    KxScreenRecord::LiveServerParam server;
    bool allInterfaces = false;
    bool openPage = false;
    bool noKey = false;
    bool manifestJson = false;
    std::vector<std::string> manifestFiles;
    std::string shell;
    InfoOptions info;
    ListOptions list;
    std::map<Argument, std::vector<std::string>> infoArguments = {
        {Argument::File, {"KXVCR.exe"}}, {Argument::PowerValue, {"HiberbootEnabled"}}, {Argument::LogType, {"1"}}};
};

template <class Number>
CLI::Validator Between(Number least, Number most) {
    return CLI::Range(least, most).description("");
}

std::string Range(std::uint32_t least, std::uint32_t most) {
    return std::to_string(least) + " to " + std::to_string(most);
}

// A check of the parser answers what is wrong, or an empty text.
std::string CheckSeconds(const std::string& text) {
    double seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    const bool isNumber = error == std::errc() && end == text.data() + text.size();
    // Not a number fails every comparison.
    if (isNumber && seconds >= kShortestSeconds && seconds <= kLongestSeconds) {
        return {};
    }
    return "\"" + text + "\" is not a length from 0.1 to 604800 seconds";
}

std::optional<std::uint32_t> QualityOf(const std::string& text) {
    for (const QualityName& known : kQualities) {
        if (text == known.name) {
            return known.quality;
        }
    }
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 1 || number > kxvcr::kMaxQuality) {
        return std::nullopt;
    }
    return number;
}

std::string CheckQuality(const std::string& text) {
    return QualityOf(text) ? std::string()
                           : "\"" + text + "\" is none of small, standard and sharp, and no number from " +
                                 Range(1, kxvcr::kMaxQuality);
}

std::string CheckFile(const std::string& text) {
    return NamesAFormat(kx::WideFromUtf8(text))
               ? std::string()
               : "\"" + text + "\" ends in none of .mp4, .webm and .mkv, which name the formats that can be written";
}

std::string CheckFunction(const std::string& text) {
    const std::size_t slash = text.find('/');
    return slash != std::string::npos && slash != 0 && slash + 1 != text.size()
               ? std::string()
               : "\"" + text + "\" is not a group and a function with a slash between them, as in Power/Saver";
}

// Four whole numbers with commas between them, of which the last two are sizes.
std::optional<std::array<int, 4>> RegionOf(const std::string& text) {
    std::array<int, 4> region = {};
    const char* at = text.data();
    const char* const end = text.data() + text.size();
    for (std::size_t i = 0; i < region.size(); ++i) {
        if (i != 0 && (at == end || *at++ != ',')) {
            return std::nullopt;
        }
        const auto [next, error] = std::from_chars(at, end, region[i]);
        if (error != std::errc()) {
            return std::nullopt;
        }
        at = next;
    }
    return at == end && region[2] > 0 && region[3] > 0 ? std::optional(region) : std::nullopt;
}

std::string CheckRegion(const std::string& text) {
    return RegionOf(text)
               ? std::string()
               : "\"" + text + "\" is not X,Y,W,H: four whole numbers, of which width and height are 1 or more";
}

std::string CheckWindow(const std::string& text) {
    return text.empty() ? "a part of the window's title is missing" : std::string();
}

// What to show and for how long: the same for a recording and a live view.
void AddSession(CLI::App& command, Arguments& arguments) {
    auto& picture = arguments.session.picture;
    command
        .add_option("--seconds", arguments.seconds, "Length in seconds, fractions allowed; without it, until Ctrl-C")
        ->type_name("S")
        ->check(CheckSeconds);
    command.add_option("--fps", picture.framesPerSecond, "Frames per second, 1 to 60 (default 30)")
        ->type_name("N")
        ->check(Between(1u, kxvcr::kMaxFramesPerSecond));
    CLI::Option* const region =
        command.add_option("--region", arguments.region, "Rectangle of the screen, in pixels; without it, all of it")
            ->type_name("X,Y,W,H")
            ->check(CheckRegion);
    command
        .add_option("--quality", arguments.quality, "small, standard or sharp, or a number from 1 to 100 (default 80)")
        ->type_name("Q")
        ->check(CheckQuality);
    command
        .add_option("--bitrate", picture.bitRate,
                    "The most kilobits a second, up to 1000000; the default grows with the picture")
        ->type_name("KBPS")
        ->check(Between(1u, kxvcr::kMaxBitRate));
    CLI::Option* const monitor =
        command.add_option("--monitor", picture.monitor, "1 is the first monitor; 0, the default, is the whole screen")
            ->type_name("N");
    command
        .add_option(
            "--window", arguments.window,
            "The window whose title has that in it, wherever it moves, or 0x and a handle; see kxrecord windows")
        ->type_name("TITLE")
        ->check(CheckWindow)
        ->excludes(region)
        ->excludes(monitor);
    command.add_flag("--cursor", arguments.cursor, "Draw the mouse pointer into the picture");
    CLI::Option* const sound =
        command.add_option("--sound", arguments.sound, "Record sound: machine (what it plays), microphone, or both")
            ->type_name("SOURCE")
            ->check(CLI::IsMember({"machine", "microphone", "both"}).description(""));
    command
        .add_option("--sound-device", arguments.soundDevices,
                    "The device's id or a part of its name, instead of the default; with both, given twice: the "
                    "machine's, then the microphone's. See kxrecord sounds")
        ->type_name("ID")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->needs(sound);
    command
        .add_option("--timeout", arguments.session.timeoutMs,
                    "Milliseconds that the worker may take to start, to answer, and to finish")
        ->type_name("MS")
        ->check(Between(1u, kLongestTimeoutMs))
        ->capture_default_str();
    command.add_flag("--json", arguments.session.json,
                     "For machines: one JSON object a line, errors as well, on standard output");
    command.add_flag("--quiet", arguments.isQuiet, "Say nothing but what goes wrong");
    command.add_flag("--verbose", arguments.isVerbose, "Show the library's log messages as well");
}

CLI::App* AddRecord(CLI::App& app, Arguments& arguments) {
    CLI::App* const record = app.add_subcommand("record", "Record the screen until --seconds are over or Ctrl-C");
    record
        ->add_option("FILE", arguments.file,
                     "File to write: .mp4 (H.264), .webm (VP9) or .mkv (H.264); an older recording is replaced")
        ->type_name("")
        ->check(CheckFile)
        ->required();
    record->add_flag("--overwrite", arguments.overwrite, "Replace FILE also when it is not a recording");
    record
        ->add_option("--replay", arguments.replaySeconds,
                     "Keep the last S seconds of the screen, " + Range(1, kxvcr::kMaxReplaySeconds) +
                         ", until Enter (or, when standard input is closed, for S seconds); the file begins with them")
        ->type_name("S")
        ->check(Between(1u, kxvcr::kMaxReplaySeconds));
    AddSession(*record, arguments);
    return record;
}

CLI::App* AddLive(CLI::App& app, Arguments& arguments) {
    CLI::App* const live =
        app.add_subcommand("live", "Serve the screen live over HTTP until --seconds are over or Ctrl-C");
    live->add_option("--port", arguments.server.port, "TCP port; 0, the default, lets the system choose")
        ->type_name("N")
        ->check(Between(0u, kxvcr::kMaxPort));
    live->add_option("--clients", arguments.server.maxClients, "Viewers at the same time, 1 to 64 (default 8)")
        ->type_name("N")
        ->check(Between(1u, kxvcr::kMaxLiveClients));
    live->add_flag("--all-interfaces", arguments.allInterfaces,
                   "Serve other machines as well; whoever knows the address sees the screen");
    live->add_flag("--no-key", arguments.noKey,
                   "An address without a random key: everybody who reaches the server sees the screen");
    live->add_flag("--open", arguments.openPage, "Open the page in the browser");
    AddSession(*live, arguments);
    return live;
}

CLI::App* AddManifest(CLI::App& app, Arguments& arguments) {
    CLI::App* const manifest = app.add_subcommand(
        "manifest", "Enter files into the integrity manifest, config\\CheckFileIntergrity.xml beside kxrecord.exe");
    manifest
        ->add_option("FILE", arguments.manifestFiles,
                     "File to enter, relative to kxrecord.exe's folder, e.g. KXVCR.exe")
        ->type_name("")
        ->required();
    manifest->add_flag("--json", arguments.manifestJson, "One JSON object, errors as well, on standard output");
    return manifest;
}

CLI::App* AddCompletion(CLI::App& app, Arguments& arguments) {
    CLI::App* const completion =
        app.add_subcommand("completion", "Print a script that completes kxrecord's commands and options in a shell");
    completion->add_option("SHELL", arguments.shell, "bash or powershell")
        ->type_name("")
        ->check(CLI::IsMember({"bash", "powershell"}).description(""))
        ->required();
    return completion;
}

constexpr char kInfoHelp[] =
    "Ask the library about this machine and the installed suite; nothing is changed. Queries that may write the "
    "registry while they answer are left out unless --all is given";
constexpr char kAllHelp[] =
    "Ask also the queries that may write the registry: they take back an agreement clause that has expired, and keep "
    "the OEM version and the serial number there";

struct ArgumentOption {
    const char* name;
    Argument argument;
    const char* type;
    const char* help;
};

constexpr ArgumentOption kArgumentOptions[] = {
    {"--file", Argument::File, "NAME", "File below kxrecord.exe's folder to verify (default KXVCR.exe)"},
    {"--function", Argument::Function, "GROUP/NAME", "Function in config\\DeviceFuncSwitchConf.xml"},
    {"--setting", Argument::Setting, "NAME", "Value of the suite's settings for the user"},
    {"--power-value", Argument::PowerValue, "NAME", "Value of the system's power settings (default HiberbootEnabled)"},
    {"--log-type", Argument::LogType, "ID", "Log type for names of log packages (default 1)"},
};

CLI::App* AddInfo(CLI::App& app, Arguments& arguments) {
    CLI::App* const info = app.add_subcommand("info", kInfoHelp);
    info->add_flag("--json", arguments.info.json, "One JSON object with every answer");
    info->add_flag("--dpi", arguments.info.onlyDpi, "Only the display scaling");
    info->add_flag("--all", arguments.info.mayWrite, kAllHelp);
    for (const ArgumentOption& option : kArgumentOptions) {
        info->add_option(option.name, arguments.infoArguments[option.argument], option.help)
            ->type_name(option.type)
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    }
    info->get_option("--function")->check(CheckFunction);
    info->get_option("--log-type")->check(Between(0, 0x7fffffff));
    return info;
}

constexpr char kListJsonHelp[] = "One JSON object instead of lines";

CLI::App* AddWindows(CLI::App& app, Arguments& arguments) {
    CLI::App* const windows =
        app.add_subcommand("windows", "List the windows that can be recorded, from front to back");
    windows->add_flag("--json", arguments.list.json, kListJsonHelp);
    return windows;
}

CLI::App* AddDisplays(CLI::App& app, Arguments& arguments) {
    CLI::App* const displays =
        app.add_subcommand("displays", "List the monitors with the numbers that --monitor takes");
    displays->add_flag("--json", arguments.list.json, kListJsonHelp);
    return displays;
}

CLI::App* AddSounds(CLI::App& app, Arguments& arguments) {
    CLI::App* const sounds = app.add_subcommand("sounds", "List the sound devices that --sound-device takes");
    sounds->add_flag("--json", arguments.list.json, kListJsonHelp);
    return sounds;
}

std::string ExitCodesText() {
    std::ostringstream text;
    text << "Exit codes:\n";
    for (const ExitMeaning& row : kExits) {
        text << (static_cast<int>(row.code) < 10    ? "    "
                 : static_cast<int>(row.code) < 100 ? "   "
                                                    : "  ")
             << static_cast<int>(row.code) << "  " << row.meaning << "\n";
    }
    text << "The code of the system or the worker stands in the sentence and in the JSON.";
    return text.str();
}

InfoOptions InfoOptionsOf(const Arguments& arguments) {
    InfoOptions options = arguments.info;
    for (const auto& [argument, texts] : arguments.infoArguments) {
        for (const std::string& text : texts) {
            options.arguments[argument].push_back(kx::WideFromUtf8(text));
        }
    }
    return options;
}

// Which sources are recorded, as flags of the streams.
std::uint32_t SoundStreams(const std::string& sound) {
    constexpr std::uint32_t kBoth = kxvcr::kStreamMachineSound | kxvcr::kStreamMicrophone;
    const std::map<std::string, std::uint32_t> streams = {
        {"", 0}, {"machine", kxvcr::kStreamMachineSound}, {"microphone", kxvcr::kStreamMicrophone}, {"both", kBoth}};
    return streams.at(sound);
}

SoundDevices SoundDevicesOf(const Arguments& arguments) {
    const std::vector<std::string>& given = arguments.soundDevices;
    if (arguments.sound == "both") {
        if (!given.empty() && given.size() != 2) {
            throw CLI::ValidationError("--sound-device", "with both it is given twice, the machine's first");
        }
        return given.empty() ? SoundDevices{} : SoundDevices{kx::WideFromUtf8(given[0]), kx::WideFromUtf8(given[1])};
    }
    if (given.size() > 1) {
        throw CLI::ValidationError("--sound-device", "it is given twice only with --sound both");
    }
    const std::wstring device = given.empty() ? std::wstring() : kx::WideFromUtf8(given[0]);
    return arguments.sound == "machine" ? SoundDevices{device, {}} : SoundDevices{{}, device};
}

SessionOptions SessionOptionsOf(const Arguments& arguments) {
    SessionOptions options = arguments.session;
    if (arguments.seconds > 0) {
        options.length = std::chrono::milliseconds(static_cast<long long>(arguments.seconds * 1000));
    }
    if (arguments.isQuiet && arguments.isVerbose) {
        throw CLI::ValidationError("--quiet", "does not go with --verbose");
    }
    if (arguments.isQuiet || arguments.isVerbose) {
        options.verbosity = arguments.isQuiet ? Verbosity::Quiet : Verbosity::Verbose;
    }
    options.window = kx::WideFromUtf8(arguments.window);
    options.picture.quality = QualityOf(arguments.quality).value_or(0);
    options.picture.drawCursor = arguments.cursor ? 1 : 0;
    options.picture.streams = SoundStreams(arguments.sound);
    options.soundDevices = SoundDevicesOf(arguments);
    if (const std::optional<std::array<int, 4>> region = RegionOf(arguments.region)) {
        options.picture.left = (*region)[0];
        options.picture.top = (*region)[1];
        options.picture.width = static_cast<std::uint32_t>((*region)[2]);
        options.picture.height = static_cast<std::uint32_t>((*region)[3]);
    }
    return options;
}

RecordOptions RecordOptionsOf(const Arguments& arguments) {
    RecordOptions options{kx::WideFromUtf8(arguments.file), arguments.overwrite, SessionOptionsOf(arguments),
                          std::chrono::seconds(arguments.replaySeconds)};
    if (options.replay.count() != 0 && NamesWebM(options.file)) {
        options.session.picture.streams |= kxvcr::kStreamVp9;
    }
    return options;
}

LiveOptions LiveOptionsOf(const Arguments& arguments) {
    LiveOptions options{SessionOptionsOf(arguments), arguments.server, arguments.openPage, !arguments.noKey};
    options.server.listenOnAllInterfaces = arguments.allInterfaces ? 1 : 0;
    return options;
}

ListOptions ListOptionsOf(Listed what, const Arguments& arguments) {
    ListOptions options = arguments.list;
    options.what = what;
    return options;
}

ManifestOptions ManifestOptionsOf(const Arguments& arguments) {
    ManifestOptions options;
    options.json = arguments.manifestJson;
    for (const std::string& file : arguments.manifestFiles) {
        options.files.push_back(kx::WideFromUtf8(file));
    }
    return options;
}

Notice Complaint(const std::string& sentence) {
    return {Exit::BadArguments, {}, kComplaintPrefix + sentence};
}

// The parser itself would only say that a command is needed.
std::optional<Notice> UnknownCommand(const CLI::App& app, const std::vector<std::string>& arguments) {
    if (arguments.empty() || arguments.front().starts_with('-')) {
        return std::nullopt;
    }
    std::string names;
    for (const CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (command->get_name() == arguments.front()) {
            return std::nullopt;
        }
        names += (names.empty() ? "" : ", ") + command->get_name();
    }
    return Complaint("there is no command \"" + arguments.front() + "\"; the commands are " + names + "\n");
}

// Help and version are "errors" with code 0 to the parser.
Notice NoticeOf(const CLI::App& app, const CLI::ParseError& error) {
    std::ostringstream output;
    std::ostringstream complaint;
    app.exit(error, output, complaint);
    if (error.get_exit_code() == 0) {
        return {Exit::Success, Wrapped(output.str(), kHelpWidth), {}};
    }
    return Complaint(complaint.str());
}

} // namespace

std::string Wrapped(const std::string& text, std::size_t width) {
    constexpr std::size_t kNone = std::string::npos;
    std::string wrapped;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        // What continues an option's line stands below its description.
        const std::size_t name = line.find_first_not_of(' ');
        const std::size_t gap = name == kNone ? kNone : line.find("  ", name);
        const std::size_t column = gap == kNone ? (name == kNone ? 0 : name) : line.find_first_not_of(' ', gap);
        while (line.size() > width) {
            const std::size_t blank = line.rfind(' ', width);
            if (blank == kNone || blank <= column) {
                break;
            }
            wrapped += line.substr(0, blank) + "\n";
            line = std::string(column, ' ') + line.substr(blank + 1);
        }
        wrapped += line + "\n";
    }
    return wrapped;
}

Task ParseArguments(std::vector<std::string> arguments, const std::string& versions) {
    Arguments values;
    CLI::App app(kDescription, "kxrecord");
    app.get_formatter()->column_width(kOptionColumn);
    app.set_version_flag("--version", versions);
    app.footer(ExitCodesText());
    app.require_subcommand(1);
    app.allow_windows_style_options(false); // "/videos/a.mp4" is a path, as everywhere in Windows
    const CLI::App* const record = AddRecord(app, values);
    const CLI::App* const live = AddLive(app, values);
    const CLI::App* const windows = AddWindows(app, values);
    const CLI::App* const displays = AddDisplays(app, values);
    const CLI::App* const sounds = AddSounds(app, values);
    const CLI::App* const info = AddInfo(app, values);
    const CLI::App* const manifest = AddManifest(app, values);
    AddCompletion(app, values);
    for (CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; })) {
        command->footer("Exit codes: kxrecord --help");
    }
    if (std::optional<Notice> notice = UnknownCommand(app, arguments)) {
        return std::move(*notice);
    }
    std::reverse(arguments.begin(), arguments.end()); // as the parser takes them
    try {
        app.parse(std::move(arguments));
        if (record->parsed()) {
            return RecordOptionsOf(values);
        }
        if (live->parsed()) {
            return LiveOptionsOf(values);
        }
        if (windows->parsed()) {
            return ListOptionsOf(Listed::Windows, values);
        }
        if (displays->parsed()) {
            return ListOptionsOf(Listed::Displays, values);
        }
        if (sounds->parsed()) {
            return ListOptionsOf(Listed::Sounds, values);
        }
        if (info->parsed()) {
            return InfoOptionsOf(values);
        }
        if (manifest->parsed()) {
            return ManifestOptionsOf(values);
        }
        return Notice{Exit::Success, CompletionScript(app, values.shell), {}};
    } catch (const CLI::ParseError& error) {
        return NoticeOf(app, error);
    }
}

} // namespace kxrecord
