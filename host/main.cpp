// kxrecord.exe: records the screen through ScreenRecordProxy.dll. This file turns the command line into the
// options of one command and a failure into the exit code.
#include "console.h"
#include "errors.h"
#include "manifest.h"
#include "record.h"
#include "text.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr char kDescription[] = "Records the screen to a Matroska file, with the worker KXVCR.exe beside this program.";
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
                              "  258  the worker did not get ready, or did not finish, in time\n"
                              "Other codes are the worker's (4: the disk was full) or the system's.";
constexpr double kLongestSeconds = 7 * 24 * 3600.0;
constexpr unsigned int kLongestTimeoutMs = 3600000;

struct Arguments {
    std::string file;
    double seconds = 0;
    std::vector<int> region;
    bool cursor = false;
    std::vector<std::string> manifestFiles;
    RecordOptions record;
};

CLI::App* AddRecord(CLI::App& app, Arguments& arguments) {
    CLI::App* const record = app.add_subcommand("record", "Record the screen until --seconds are over or Ctrl-C");
    auto& picture = arguments.record.picture;
    record->add_option("FILE", arguments.file, "Matroska file to write, e.g. screen.mkv; an existing one is replaced")
        ->type_name("")
        ->required();
    record->add_option("--seconds", arguments.seconds, "Length in seconds, fractions allowed; without it, until Ctrl-C")
        ->type_name("S")
        ->check(CLI::Range(0.1, kLongestSeconds).description(""));
    record->add_option("--fps", picture.framesPerSecond, "Frames per second, 1 to 60 (default 30)")
        ->type_name("N")
        ->check(CLI::Range(1, 60).description(""));
    record->add_option("--region", arguments.region, "Rectangle of the screen, in pixels; without it, all of it")
        ->type_name("X,Y,W,H")
        ->delimiter(',')
        ->expected(4);
    record->add_option("--quality", picture.jpegQuality, "JPEG quality, 1 to 100 (default 80)")
        ->type_name("Q")
        ->check(CLI::Range(1, 100).description(""));
    record->add_option("--monitor", picture.monitor, "1 is the first monitor; 0, the default, is the whole screen")
        ->type_name("N");
    record->add_flag("--cursor", arguments.cursor, "Draw the mouse pointer into the picture");
    record
        ->add_option("--timeout", arguments.record.timeoutMs,
                     "Milliseconds that the worker may take to start, to answer, and to finish the file")
        ->type_name("MS")
        ->check(CLI::Range(1u, kLongestTimeoutMs).description(""))
        ->capture_default_str();
    return record;
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

RecordOptions OptionsOf(Arguments& arguments) {
    RecordOptions options = arguments.record;
    options.file = WideFromUtf8(arguments.file);
    if (arguments.seconds > 0)
        options.length = std::chrono::milliseconds(static_cast<long long>(arguments.seconds * 1000));
    options.picture.drawCursor = arguments.cursor ? 1 : 0;
    if (arguments.region.empty())
        return options;
    const std::vector<int>& region = arguments.region;
    if (region[2] <= 0 || region[3] <= 0)
        throw CLI::ValidationError("--region", "width and height must be 1 or more");
    options.picture.left = region[0];
    options.picture.top = region[1];
    options.picture.width = static_cast<std::uint32_t>(region[2]);
    options.picture.height = static_cast<std::uint32_t>(region[3]);
    return options;
}

// CLI11 takes the arguments last one first.
std::vector<std::string> ReversedArguments(int count, wchar_t** texts) {
    std::vector<std::string> arguments;
    for (int i = count - 1; i > 0; --i)
        arguments.push_back(Utf8FromWide(texts[i]));
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
    AddManifest(app, arguments);
    try {
        app.parse(ReversedArguments(count, texts));
        if (record->parsed())
            return Record(OptionsOf(arguments));
    } catch (const CLI::ParseError& error) {
        return ReportParse(app, error);
    }
    std::vector<std::wstring> files;
    for (const std::string& file : arguments.manifestFiles)
        files.push_back(WideFromUtf8(file));
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
