/**
 * @file
 * The numbers that the worker KXVCR.exe shares with its hosts: ids of modules and messages, results of commands, exit
 * codes and limits. Each stands here once; docs/worker-protocol.md is their manual and is checked against the tables.
 */
#pragma once

#include <cstdint>

namespace kxvcr {

inline constexpr char kWorkerFileName[] = "KXVCR.exe";         ///< the worker's file, beside the host executable
inline constexpr wchar_t kWorkerFileNameWide[] = L"KXVCR.exe"; ///< the same for wide functions
inline constexpr char kProxyArgument[] = "-IPCProxy";          ///< the worker's one argument

inline constexpr std::uint32_t kHostModuleId = 0x4E0000;   ///< module id of the host on the channel
inline constexpr std::uint32_t kWorkerModuleId = 0x650000; ///< module id of the worker; it names the channel

inline constexpr std::uint32_t kMessageReady = 0x4E0002; ///< notice of the worker: commands are taken
inline constexpr std::uint32_t kMessagePrepare =
    0x4E0003; ///< request: ScreenRecordParam, or with the seconds of a replay
inline constexpr std::uint32_t kMessageStartLiveServer = 0x4E0004;  ///< request: LiveServerParam
inline constexpr std::uint32_t kMessageStartLocalRecord = 0x4E0005; ///< request: the path of the file
inline constexpr std::uint32_t kMessageStop = 0x4E0006;             ///< notice of the host: finish and end

// What the fields of ScreenRecordParam and LiveServerParam may hold; 0 stands for the default.
inline constexpr std::uint32_t kDefaultFramesPerSecond = 30; ///< pictures a second when none are asked for
inline constexpr std::uint32_t kMaxFramesPerSecond = 60;     ///< most pictures a second
inline constexpr std::uint32_t kDefaultQuality = 80;         ///< quality when none is asked for
inline constexpr std::uint32_t kMaxQuality = 100;            ///< best quality; 1 is the worst
inline constexpr std::uint32_t kMaxReplaySeconds = 1800;     ///< longest time kept for a replay
inline constexpr std::uint32_t kMaxBitRate = 1'000'000;      ///< in kilobits a second
inline constexpr std::uint32_t kMaxPort = 65535;             ///< highest port of the live server
inline constexpr std::uint32_t kDefaultLiveClients = 8;      ///< viewers at the same time when no number is asked for
inline constexpr std::uint32_t kMaxLiveClients = 64;         ///< most viewers at the same time
inline constexpr unsigned int kMaxPathCharacters = 260; ///< of the path of a recording, without its terminating zero

// Flags of ScreenRecordParam::streams.
inline constexpr std::uint32_t kStreamMachineSound = 1; ///< what the machine plays is recorded
inline constexpr std::uint32_t kStreamMicrophone = 2;   ///< the microphone is recorded; with the machine's: both, mixed
inline constexpr std::uint32_t kStreamVp9 = 0x100;      ///< a replay is kept as VP9, so that it can become a .webm file
inline constexpr std::uint32_t kStreamFlags =
    kStreamMachineSound | kStreamMicrophone | kStreamVp9; ///< all flags that have a meaning

// Environment variables of the worker: the id or name of the device to record instead of the system's default.
inline constexpr wchar_t kMachineSoundVariable[] = L"KXVCR_MACHINE_SOUND"; ///< for the machine's sound
inline constexpr wchar_t kMicrophoneVariable[] = L"KXVCR_MICROPHONE";      ///< for the microphone

/** Answer to a command: 0 accepted, negative refused. */
enum class Result : std::int32_t {
    Accepted = 0,
    UnknownCommand = -1,
    WrongOrder = -2,
    WrongPayloadSize = -3,
    NotSupported = -4,
    BadRectangle = -5,
    BadFrameRate = -6,
    BadQuality = -7,
    BadCursorFlag = -8,
    BadMonitor = -9,
    ReservedNotZero = -10,
    BadPath = -11,
    CannotCreateFile = -12,
    CaptureFailed = -13,
    EncoderFailed = -14,
    OutOfResources = -15,
    BadBitRate = -16,
    UnknownFormat = -17,
    EncoderMissing = -18,
    BadStreams = -19,
    BadPort = -20,
    BadClientLimit = -21,
    BadInterfaceFlag = -22,
    CannotListen = -23,
    BadWindow = -24,
    NoSound = -25,
};

/** One row of the table of results. */
struct ResultMeaning {
    Result result;       ///< the number on the channel
    const char* name;    ///< as in Result
    const char* meaning; ///< a part of a sentence: what was wrong
};

/** Every result once, in the order of the numbers downwards. */
inline constexpr ResultMeaning kResults[] = {
    {Result::Accepted, "Accepted", "accepted"},
    {Result::UnknownCommand, "UnknownCommand", "unknown command"},
    {Result::WrongOrder, "WrongOrder", "wrong order: the command does not fit what the worker is doing"},
    {Result::WrongPayloadSize, "WrongPayloadSize", "wrong payload size"},
    {Result::NotSupported, "NotSupported", "not supported: a time-machine value above 1800"},
    {Result::BadRectangle, "BadRectangle",
     "bad rectangle: not wholly on the screen or the chosen monitor, or only a part of it given"},
    {Result::BadFrameRate, "BadFrameRate", "bad frame rate: above 60"},
    {Result::BadQuality, "BadQuality", "bad quality: above 100"},
    {Result::BadCursorFlag, "BadCursorFlag", "bad cursor flag: neither 0 nor 1"},
    {Result::BadMonitor, "BadMonitor", "no monitor with this number"},
    {Result::ReservedNotZero, "ReservedNotZero", "a reserved field is not 0"},
    {Result::BadPath, "BadPath", "bad path: empty, not terminated, or with characters behind its terminating zero"},
    {Result::CannotCreateFile, "CannotCreateFile",
     "the file cannot be created, or its first bytes cannot be written; the log has the system's error"},
    {Result::CaptureFailed, "CaptureFailed", "the screen cannot be read"},
    {Result::EncoderFailed, "EncoderFailed", "the picture cannot be encoded"},
    {Result::OutOfResources, "OutOfResources", "memory, a thread or another system resource was refused"},
    {Result::BadBitRate, "BadBitRate", "bad bit rate: above 1000000 kilobits a second"},
    {Result::UnknownFormat, "UnknownFormat",
     "the file's name ends in none of .mp4, .webm and .mkv, or in one that does not go with the replay that is kept"},
    {Result::EncoderMissing, "EncoderMissing",
     "the encoder's library is missing beside the worker, or is not the version that the worker knows"},
    {Result::BadStreams, "BadStreams", "a flag for streams that has no meaning"},
    {Result::BadPort, "BadPort", "bad port: above 65535"},
    {Result::BadClientLimit, "BadClientLimit", "bad number of viewers: above 64"},
    {Result::BadInterfaceFlag, "BadInterfaceFlag", "bad flag for all interfaces: neither 0 nor 1"},
    {Result::CannotListen, "CannotListen",
     "the port is in use, or the system refused it; the log has the system's error"},
    {Result::BadWindow, "BadWindow",
     "bad window: no top-level window that is shown and has pixels, or given together with a rectangle or a monitor"},
    {Result::NoSound, "NoSound", "the sound cannot be recorded; the log says which device and why"},
};

inline constexpr std::uint32_t kEarlyExitBit = 1u << 29; ///< in exit codes; no code of the system has it

/**
 * Exit code of the worker process. Those of a worker that ends before it is ready reach the host among the system's
 * codes, from which kEarlyExitBit tells them.
 */
enum class ExitCode : std::uint32_t {
    Finished = 0,
    FileCutShort = 4,
    WindowClosed = 5,
    NeverReady = 21,
    Killed = 157,
    Usage = kEarlyExitBit | 2,
    NoChannel = kEarlyExitBit | 3,
    OutOfResources = kEarlyExitBit | 5,
};

/** One row of the table of exit codes. */
struct ExitCodeMeaning {
    ExitCode code;       ///< the number that the process ends with
    const char* name;    ///< as in ExitCode
    const char* meaning; ///< a part of a sentence: why the worker ended
};

/** Every exit code once, in the order of the numbers. */
inline constexpr ExitCodeMeaning kExitCodes[] = {
    {ExitCode::Finished, "Finished", "stopped, or the host or the session ended; a recording is finished on disk"},
    {ExitCode::FileCutShort, "FileCutShort",
     "the recording's file had to be closed early, because it could not be written any further, or not in time"},
    {ExitCode::WindowClosed, "WindowClosed", "the recorded window was closed; a recording is finished on disk"},
    {ExitCode::NeverReady, "NeverReady", "ended by the proxy: not ready in time"},
    {ExitCode::Killed, "Killed", "ended by the proxy: KillProcess"},
    {ExitCode::Usage, "Usage", "not started by a host: the argument is missing"},
    {ExitCode::NoChannel, "NoChannel", "the host's channel cannot be opened, or the ready notice cannot be sent"},
    {ExitCode::OutOfResources, "OutOfResources", "memory or another system resource was refused while starting"},
};

} // namespace kxvcr
