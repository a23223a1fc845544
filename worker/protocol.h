/**
 * @file
 * The numbers that the worker shares with its hosts: ids of modules and messages, results of commands and exit
 * codes. docs/worker-protocol.md is their manual; the two are kept in step.
 */
#pragma once

#include <cstdint>

namespace kxvcr {

inline constexpr std::uint32_t kHostModuleId = 0x4E0000;
inline constexpr std::uint32_t kWorkerModuleId = 0x650000;

inline constexpr std::uint32_t kMessageReady = 0x4E0002;
inline constexpr std::uint32_t kMessagePrepare = 0x4E0003;
inline constexpr std::uint32_t kMessageStartLiveServer = 0x4E0004;
inline constexpr std::uint32_t kMessageStartLocalRecord = 0x4E0005;
inline constexpr std::uint32_t kMessageStop = 0x4E0006;

inline constexpr char kProxyArgument[] = "-IPCProxy";

/** Answer to a command: 0 accepted, negative refused. */
enum class Result : std::int32_t {
    Accepted = 0,
    UnknownCommand = -1,    ///< no command has this message id
    WrongOrder = -2,        ///< the command does not fit what the worker is doing
    WrongPayloadSize = -3,  ///< the payload has not the size of the command's record
    NotSupported = -4,      ///< a time-machine value above 300
    BadRectangle = -5,      ///< not inside the screen or the chosen monitor, or only one of width and height is 0
    BadFrameRate = -6,      ///< more than 60 frames per second
    BadQuality = -7,        ///< JPEG quality above 100
    BadCursorFlag = -8,     ///< neither 0 nor 1
    BadMonitor = -9,        ///< there is no monitor with this number
    ReservedNotZero = -10,  ///< a reserved field is not 0
    BadPath = -11,          ///< empty, not terminated, or with characters behind the terminating zero
    CannotCreateFile = -12, ///< the system refused to create the file, or to take its first bytes
    CaptureFailed = -13,    ///< the screen cannot be read
    EncoderFailed = -14,    ///< the picture cannot be encoded
    OutOfResources = -15,   ///< memory, a thread or another system resource was refused
    BadPort = -20,          ///< above 65535
    BadClientLimit = -21,   ///< more than 64 viewers
    BadInterfaceFlag = -22, ///< neither 0 nor 1
    CannotListen = -23,     ///< the port is in use, or the system refused it
};

/**
 * Exit code of the worker process. Those of a worker that ends before it is ready reach the host among the system's
 * codes: they have bit 29, which no code of the system has.
 */
enum class ExitCode : int {
    Finished = 0,                ///< stopped, or its host or session ended; a recording is finished on disk
    FileCutShort = 4,            ///< the recording ended by itself: its file could not be written any further
    Usage = 0x20000002,          ///< not started by a host
    NoChannel = 0x20000003,      ///< the host's channel cannot be opened
    OutOfResources = 0x20000005, ///< memory or another system resource was refused while starting
};

} // namespace kxvcr
