/** @file What the message channel's tests and the programs that they start have agreed on. */
#pragma once

#include "sdk/vcr/workerprotocol.h"

#include <cstdint>

inline constexpr int kTestModule = static_cast<int>(kxvcr::kWorkerModuleId);

// Messages of ipcworker.exe. Requests unless said otherwise.
inline constexpr std::uint32_t kReadyNotice = kxvcr::kMessageReady;
inline constexpr std::uint32_t kEchoPayload = 0x10;
inline constexpr std::uint32_t kEmptyReply = 0x11;    // replies without a payload
inline constexpr std::uint32_t kStaySilent = 0x12;    // posts kSilentNotice and does not reply
inline constexpr std::uint32_t kPostBack = 0x13;      // posts kFullNotice with the request's payload, then replies
inline constexpr std::uint32_t kThrow = 0x14;         // the handler throws
inline constexpr std::uint32_t kDie = 0x15;           // ends the process within the handler
inline constexpr std::uint32_t kReplyTwice = 0x16;    // replies "first", then posts what the second Reply returned
inline constexpr std::uint32_t kEchoRecord = 0x17;    // replies the record's words, then its payload
inline constexpr std::uint32_t kReplyTooLarge = 0x18; // tries one byte too many, then replies what that returned
inline constexpr std::uint32_t kSilentNotice = 0x22;
inline constexpr std::uint32_t kFullNotice = 0x20;
inline constexpr std::uint32_t kSecondReplyNotice = 0x21;
inline constexpr std::uint32_t kNoticeReplyNotice = 0x23;

inline constexpr int kDiedInHandler = 7;
inline constexpr unsigned long kPeerLimitMs = 20000; // a started program ends itself after this
