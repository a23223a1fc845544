// Answers a host's commands.
//
//   command             accepted while   leads to
//   prepare             Waiting          Prepared
//   start local record  Prepared         Recording
//   start live server   Prepared         Serving
#include "worker/commands.h"

#include "worker/log.h"
#include "worker/parameters.h"

#include <algorithm>
#include <exception>
#include <iterator>

namespace kxvcr {

struct CommandHandler::Command {
    std::uint32_t messageId;
    const wchar_t* name;
    Progress acceptedWhile;
    Progress leadsTo;
    Answered (CommandHandler::*carryOut)(std::span<const std::byte>);
};

const CommandHandler::Command CommandHandler::kCommands[] = {
    {kMessagePrepare, L"prepare", Progress::Waiting, Progress::Prepared, &CommandHandler::Prepare},
    {kMessageStartLocalRecord, L"start local record", Progress::Prepared, Progress::Recording,
     &CommandHandler::StartLocalRecord},
    {kMessageStartLiveServer, L"start live server", Progress::Prepared, Progress::Serving,
     &CommandHandler::StartLiveServer},
};

CommandHandler::Answered CommandHandler::Prepare(std::span<const std::byte> payload) {
    RecordSettings settings;
    const Result result = ReadPrepare(payload, m_device.Layout(), settings);
    return {result == Result::Accepted ? m_device.Prepare(settings) : result};
}

CommandHandler::Answered CommandHandler::StartLocalRecord(std::span<const std::byte> payload) {
    std::wstring path;
    const Result result = ReadLocalRecord(payload, path);
    return {result == Result::Accepted ? m_device.StartFile(path) : result};
}

CommandHandler::Answered CommandHandler::StartLiveServer(std::span<const std::byte> payload) {
    LiveSettings settings;
    if (const Result result = ReadLiveServer(payload, settings); result != Result::Accepted) {
        return {result};
    }
    const LiveStart start = m_device.StartLive(settings);
    return {start.result, start.port};
}

CommandHandler::Answered CommandHandler::CarryOut(const Command& command, std::span<const std::byte> payload) noexcept {
    if (m_progress != command.acceptedWhile) {
        return {Result::WrongOrder};
    }
    try {
        const Answered answered = (this->*command.carryOut)(payload);
        if (answered.result == Result::Accepted) {
            m_progress = command.leadsTo;
        }
        return answered;
    } catch (const std::exception&) {
        return {Result::OutOfResources};
    }
}

std::int32_t CommandHandler::Answer(std::uint32_t messageId, std::span<const std::byte> payload) noexcept {
    const auto* command = std::find_if(std::begin(kCommands), std::end(kCommands),
                                       [messageId](const Command& known) { return known.messageId == messageId; });
    if (command == std::end(kCommands)) {
        KXVCR_LOG_WARN(L"Unknown command " << messageId);
        return static_cast<std::int32_t>(Result::UnknownCommand);
    }
    const Answered answered = CarryOut(*command, payload);
    if (answered.result != Result::Accepted) {
        KXVCR_LOG_WARN(L"Refused " << command->name << L" with result " << static_cast<std::int32_t>(answered.result));
        return static_cast<std::int32_t>(answered.result);
    }
    return answered.value;
}

} // namespace kxvcr
