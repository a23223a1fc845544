// kxrecord.exe: records or serves the screen, and asks about the machine, through ScreenRecordProxy.dll. This file
// turns the command line into the options of one command and a failure into the exit code.
#include "console.h"
#include "errors.h"
#include "info.h"
#include "live.h"
#include "manifest.h"
#include "record.h"
#include "text.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <exception>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr char kDescription[] =
    "Records the screen to a Matroska file or serves it live, with the worker KXVCR.exe beside this program, and tells "
    "what the library knows about the machine.";
constexpr char kExitCodes[] = "Exit codes:\n"
                              "    0  success\n"
                              "    2  bad arguments\n"
                              "  170  a recording runs already in this process\n"
                              "  191  the worker is missing or failed verification\n"
                              "  206  the file's path is too long\n"
                              "  242  the worker refused the region, rate, quality or monitor\n"
                              "  243  the worker could not create the file\n"
                              "  244  the worker ended by itself, with code 0\n"
                              "  245  the manifest cannot be read or written\n"
                              "  246  a file for the manifest is missing or cannot be read\n"
                              "  247  the worker refused to serve the live view\n"
                              "  248  the worker refused the replay, region, rate, quality or monitor\n"
                              "  258  the worker did not get ready, or did not finish, in time\n"
                              "Other codes are the worker's (4: the disk was full) or the system's.";
constexpr double kLongestSeconds = 7 * 24 * 3600.0;
constexpr unsigned int kLongestTimeoutMs = 3600000;
constexpr unsigned int kLongestReplaySeconds = 300; ///< docs/worker-protocol.md

struct Arguments {
    std::string file;
    double seconds = 0;
    std::vector<int> region;
    bool cursor = false;
    unsigned int replaySeconds = 0;
    SessionOptions session;
    KxScreenRecord::LiveServerParam server;
    bool allInterfaces = false;
    bool openPage = false;
    std::vector<std::string> manifestFiles;
    InfoOptions info;
    std::map<Argument, std::vector<std::string>> infoArguments = {
        {Argument::File, {"KXVCR.exe"}}, {Argument::PowerValue, {"HiberbootEnabled"}}, {Argument::LogType, {"1"}}};
};

// What to show and for how long: the same for a recording and a live view.
void AddSession(CLI::App& command, Arguments& arguments) {
    auto& picture = arguments.session.picture;
    command
        .add_option("--seconds", arguments.seconds, "Length in seconds, fractions allowed; without it, until Ctrl-C")
        ->type_name("S")
        ->check(CLI::Range(0.1, kLongestSeconds).description(""));
    command.add_option("--fps", picture.framesPerSecond, "Frames per second, 1 to 60 (default 30)")
        ->type_name("N")
        ->check(CLI::Range(1, 60).description(""));
    command.add_option("--region", arguments.region, "Rectangle of the screen, in pixels; without it, all of it")
        ->type_name("X,Y,W,H")
        ->delimiter(',')
        ->expected(4);
    command.add_option("--quality", picture.quality, "JPEG quality, 1 to 100 (default 80)")
        ->type_name("Q")
        ->check(CLI::Range(1, 100).description(""));
    command.add_option("--monitor", picture.monitor, "1 is the first monitor; 0, the default, is the whole screen")
        ->type_name("N");
    command.add_flag("--cursor", arguments.cursor, "Draw the mouse pointer into the picture");
    command
        .add_option("--timeout", arguments.session.timeoutMs,
                    "Milliseconds that the worker may take to start, to answer, and to finish")
        ->type_name("MS")
        ->check(CLI::Range(1u, kLongestTimeoutMs).description(""))
        ->capture_default_str();
    command.add_flag("--json", arguments.session.json,
                     "For machines: one JSON object a line, errors as well, on standard output");
}

CLI::App* AddRecord(CLI::App& app, Arguments& arguments) {
    CLI::App* const record = app.add_subcommand("record", "Record the screen until --seconds are over or Ctrl-C");
    record->add_option("FILE", arguments.file, "Matroska file to write, e.g. screen.mkv; an existing one is replaced")
        ->type_name("")
        ->required();
    record
        ->add_option("--replay", arguments.replaySeconds,
                     "Keep the last S seconds of the screen, 1 to 300, until Enter (or, when standard input is closed, "
                     "for S seconds); the file begins with them")
        ->type_name("S")
        ->check(CLI::Range(1u, kLongestReplaySeconds).description(""));
    AddSession(*record, arguments);
    return record;
}

CLI::App* AddLive(CLI::App& app, Arguments& arguments) {
    CLI::App* const live =
        app.add_subcommand("live", "Serve the screen live over HTTP until --seconds are over or Ctrl-C");
    live->add_option("--port", arguments.server.port, "TCP port; 0, the default, lets the system choose")
        ->type_name("N")
        ->check(CLI::Range(0, 65535).description(""));
    live->add_option("--clients", arguments.server.maxClients, "Viewers at the same time, 1 to 64 (default 8)")
        ->type_name("N")
        ->check(CLI::Range(1, 64).description(""));
    live->add_flag("--all-interfaces", arguments.allInterfaces,
                   "Serve other machines as well; everybody who reaches this one sees its screen");
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
    return manifest;
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
    info->add_flag("--json", arguments.info.json, "One JSON object with an object for each group");
    info->add_flag("--dpi", arguments.info.onlyDpi, "Only the display scaling");
    info->add_flag("--all", arguments.info.mayWrite, kAllHelp);
    for (const ArgumentOption& option : kArgumentOptions) {
        info->add_option(option.name, arguments.infoArguments[option.argument], option.help)
            ->type_name(option.type)
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    }
    info->get_option("--log-type")->check(CLI::Range(0, 0x7fffffff).description(""));
    return info;
}

InfoOptions InfoOptionsOf(const Arguments& arguments) {
    InfoOptions options = arguments.info;
    for (const auto& [argument, texts] : arguments.infoArguments) {
        for (const std::string& text : texts) {
            options.arguments[argument].push_back(WideFromUtf8(text));
        }
    }
    return options;
}

SessionOptions SessionOptionsOf(const Arguments& arguments) {
    SessionOptions options = arguments.session;
    if (arguments.seconds > 0) {
        options.length = std::chrono::milliseconds(static_cast<long long>(arguments.seconds * 1000));
    }
    options.picture.drawCursor = arguments.cursor ? 1 : 0;
    if (arguments.region.empty()) {
        return options;
    }
    const std::vector<int>& region = arguments.region;
    if (region[2] <= 0 || region[3] <= 0) {
        throw CLI::ValidationError("--region", "width and height must be 1 or more");
    }
    options.picture.left = region[0];
    options.picture.top = region[1];
    options.picture.width = static_cast<std::uint32_t>(region[2]);
    options.picture.height = static_cast<std::uint32_t>(region[3]);
    return options;
}

RecordOptions RecordOptionsOf(const Arguments& arguments) {
    return {WideFromUtf8(arguments.file), SessionOptionsOf(arguments), std::chrono::seconds(arguments.replaySeconds)};
}

LiveOptions LiveOptionsOf(const Arguments& arguments) {
    LiveOptions options{SessionOptionsOf(arguments), arguments.server, arguments.openPage};
    options.server.listenOnAllInterfaces = arguments.allInterfaces ? 1 : 0;
    return options;
}

// CLI11 takes the arguments last one first.
std::vector<std::string> ReversedArguments(int count, wchar_t** texts) {
    std::vector<std::string> arguments;
    for (int i = count - 1; i > 0; --i) {
        arguments.push_back(Utf8FromWide(texts[i]));
    }
    return arguments;
}

// Help and version are "errors" with code 0 to the parser.
unsigned long ReportParse(const CLI::App& app, const CLI::ParseError& error) {
    std::ostringstream output;
    std::ostringstream complaint;
    app.exit(error, output, complaint);
    Write(Stream::Output, WideFromUtf8(output.str()));
    Write(Stream::Error, WideFromUtf8(complaint.str()));
    return error.get_exit_code() == 0 ? kExitSuccess : kExitBadArguments;
}

unsigned long Run(int count, wchar_t** texts) {
    Arguments arguments;
    CLI::App app(kDescription, "kxrecord");
    app.set_version_flag("--version", "kxrecord " KXRECORD_VERSION);
    app.footer(kExitCodes);
    app.require_subcommand(1);
    app.allow_windows_style_options(false); // "/videos/a.mkv" is a path, as everywhere in Windows
    const CLI::App* const record = AddRecord(app, arguments);
    const CLI::App* const live = AddLive(app, arguments);
    const CLI::App* const info = AddInfo(app, arguments);
    AddManifest(app, arguments);
    try {
        app.parse(ReversedArguments(count, texts));
        if (record->parsed()) {
            return Record(RecordOptionsOf(arguments));
        }
        if (live->parsed()) {
            return Live(LiveOptionsOf(arguments));
        }
        if (info->parsed()) {
            return PrintInfo(InfoOptionsOf(arguments));
        }
    } catch (const CLI::ParseError& error) {
        return ReportParse(app, error);
    }
    std::vector<std::wstring> files;
    files.reserve(arguments.manifestFiles.size());
    for (const std::string& file : arguments.manifestFiles) {
        files.push_back(WideFromUtf8(file));
    }
    return WriteManifest(files);
}

} // namespace

extern "C" int wmain(int count, wchar_t** texts) {
    try {
        return static_cast<int>(Run(count, texts));
    } catch (const std::exception& error) {
        Write(Stream::Error, L"kxrecord: " + WideFromUtf8(error.what()) + L"\n");
        return static_cast<int>(kExitInternal);
    }
}
