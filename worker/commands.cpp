// Answers a host's commands.
//
//   command             accepted while   leads to
//   prepare             Waiting          Prepared
//   start local record  Prepared         Recording
//   start live server   Prepared         Prepared (not supported by this worker)
#include "commands.h"

#include "sdk/util/logtool.h"

#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <exception>
#include <iterator>

namespace kxvcr {

struct CommandHandler::Command {
    std::uint32_t messageId;
    const wchar_t* name;
    Progress acceptedWhile;
    Progress leadsTo;
    Result (CommandHandler::*carryOut)(std::span<const std::byte>);
};

const CommandHandler::Command CommandHandler::kCommands[] = {
    {kMessagePrepare, L"prepare", Progress::Waiting, Progress::Prepared, &CommandHandler::Prepare},
    {kMessageStartLocalRecord, L"start local record", Progress::Prepared, Progress::Recording,
     &CommandHandler::StartLocalRecord},
    {kMessageStartLiveServer, L"start live server", Progress::Prepared, Progress::Prepared,
     &CommandHandler::StartLiveServer},
};

Result CommandHandler::Prepare(std::span<const std::byte> payload) {
    RecordSettings settings;
    const Result result = ReadPrepare(payload, m_device.Layout(), settings);
    return result == Result::Accepted ? m_device.Prepare(settings) : result;
}

Result CommandHandler::StartLocalRecord(std::span<const std::byte> payload) {
    std::wstring path;
    const Result result = ReadLocalRecord(payload, path);
    return result == Result::Accepted ? m_device.StartFile(path) : result;
}

Result CommandHandler::StartLiveServer(std::span<const std::byte> payload) {
    return ReadLiveServer(payload);
}

Result CommandHandler::CarryOut(const Command& command, std::span<const std::byte> payload) noexcept {
    if (m_progress != command.acceptedWhile)
        return Result::WrongOrder;
    try {
        const Result result = (this->*command.carryOut)(payload);
        if (result == Result::Accepted)
            m_progress = command.leadsTo;
        return result;
    } catch (const std::exception&) {
        return Result::OutOfResources;
    }
}

Result CommandHandler::Answer(std::uint32_t messageId, std::span<const std::byte> payload) noexcept {
    const auto* command = std::find_if(std::begin(kCommands), std::end(kCommands),
                                       [messageId](const Command& known) { return known.messageId == messageId; });
    if (command == std::end(kCommands)) {
        LOG4CPLUS_WARN(GetLogger(), L"Unknown command " << messageId);
        return Result::UnknownCommand;
    }
    const Result result = CarryOut(*command, payload);
    if (result != Result::Accepted)
        LOG4CPLUS_WARN(GetLogger(), L"Refused " << command->name << L" with result " << static_cast<int>(result));
    return result;
}

} // namespace kxvcr
