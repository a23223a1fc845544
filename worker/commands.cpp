// Answers a host's commands.
//
//   command             accepted while   leads to
//   prepare             Waiting          Prepared
//   start local record  Prepared         Recording
//   start live server   Prepared         Serving
#include "worker/commands.h"

#include "sdk/util/logtool.h"

#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <exception>
#include <iterator>

namespace kxvcr {

namespace {

std::int32_t ReplyOf(Result result) {
    return static_cast<std::int32_t>(result);
}

} // namespace

struct CommandHandler::Command {
    std::uint32_t messageId;
    const wchar_t* name;
    Progress acceptedWhile;
    Progress leadsTo;
    std::int32_t (CommandHandler::*carryOut)(std::span<const std::byte>);
};

const CommandHandler::Command CommandHandler::kCommands[] = {
    {kMessagePrepare, L"prepare", Progress::Waiting, Progress::Prepared, &CommandHandler::Prepare},
    {kMessageStartLocalRecord, L"start local record", Progress::Prepared, Progress::Recording,
     &CommandHandler::StartLocalRecord},
    {kMessageStartLiveServer, L"start live server", Progress::Prepared, Progress::Serving,
     &CommandHandler::StartLiveServer},
};

std::int32_t CommandHandler::Prepare(std::span<const std::byte> payload) {
    RecordSettings settings;
    const Result result = ReadPrepare(payload, m_device.Layout(), settings);
    return ReplyOf(result == Result::Accepted ? m_device.Prepare(settings) : result);
}

std::int32_t CommandHandler::StartLocalRecord(std::span<const std::byte> payload) {
    std::wstring path;
    const Result result = ReadLocalRecord(payload, path);
    return ReplyOf(result == Result::Accepted ? m_device.StartFile(path) : result);
}

std::int32_t CommandHandler::StartLiveServer(std::span<const std::byte> payload) {
    LiveSettings settings;
    const Result result = ReadLiveServer(payload, settings);
    return result == Result::Accepted ? m_device.StartLive(settings) : ReplyOf(result);
}

std::int32_t CommandHandler::CarryOut(const Command& command, std::span<const std::byte> payload) noexcept {
    if (m_progress != command.acceptedWhile) {
        return ReplyOf(Result::WrongOrder);
    }
    try {
        const std::int32_t reply = (this->*command.carryOut)(payload);
        if (reply >= 0) {
            m_progress = command.leadsTo;
        }
        return reply;
    } catch (const std::exception&) {
        return ReplyOf(Result::OutOfResources);
    }
}

std::int32_t CommandHandler::Answer(std::uint32_t messageId, std::span<const std::byte> payload) noexcept {
    const auto* command = std::find_if(std::begin(kCommands), std::end(kCommands),
                                       [messageId](const Command& known) { return known.messageId == messageId; });
    if (command == std::end(kCommands)) {
        LOG4CPLUS_WARN(GetLogger(), L"Unknown command " << messageId);
        return ReplyOf(Result::UnknownCommand);
    }
    const std::int32_t reply = CarryOut(*command, payload);
    if (reply < 0) {
        LOG4CPLUS_WARN(GetLogger(), L"Refused " << command->name << L" with result " << reply);
    }
    return reply;
}

} // namespace kxvcr
