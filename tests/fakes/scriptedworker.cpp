/**
 * @file
 * A KXVCR.exe that obeys scriptedworker.txt beside it, one order a line, and writes every request that it gets into
 * scriptedworker.log beside it.
 *
 *     exit CODE            ends at once
 *     never-ready          connects, but sends no ready notice
 *     ready-after MS       waits before the ready notice
 *     result ID NUMBER     answers requests with this hexadecimal id with a 32-bit result
 *     size ID BYTES        answers with a payload of this many bytes
 *     silent ID            gives no answer
 *     die ID CODE          ends in the middle of the command
 *
 * Without an order for its id a request is answered with 1; the stop notice, 4E0006, ends the worker with 0.
 */
#include "common/win/handle.h"
#include "common/win/modulepath.h"
#include "sdk/ipcmessage/ipcmessage.h"
#include "sdk/vcr/workerprotocol.h"

#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

namespace {

constexpr unsigned int kConnectLimitMs = 10000;
constexpr DWORD kLongestLifeMs = 60000;
constexpr UINT kNotConnected = 95;

struct Order {
    std::string verb;
    long long value = 0;
};

struct Script {
    std::map<std::uint32_t, Order> orders;
    bool ready = true;
    DWORD readyAfterMs = 0;
};

std::filesystem::path OwnFolder() {
    return kx::ModuleFolder(nullptr).value();
}

Script ReadScript() {
    Script script;
    std::ifstream file(OwnFolder() / "scriptedworker.txt");
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string verb;
        words >> verb;
        if (verb == "exit") {
            unsigned int code = 0;
            words >> code;
            ExitProcess(code);
        } else if (verb == "never-ready") {
            script.ready = false;
        } else if (verb == "ready-after") {
            words >> script.readyAfterMs;
        } else if (!verb.empty()) {
            std::uint32_t id = 0;
            Order order{verb, 0};
            words >> std::hex >> id >> std::dec >> order.value;
            script.orders[id] = order;
        }
    }
    return script;
}

void WriteDown(const TagIPCMessageItem& request) {
    std::ofstream log(OwnFolder() / "scriptedworker.log", std::ios::app);
    log << std::hex << request.sourceModuleId << ' ' << request.targetModuleId << ' ' << request.messageId << ' '
        << request.replyMessageId << ' ' << request.hasPayload << ' ' << std::dec << request.payloadSize << ' ';
    const auto* bytes = static_cast<const unsigned char*>(request.payload);
    for (std::uint32_t i = 0; i < request.payloadSize; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof(digits), "%02x", static_cast<unsigned int>(bytes[i]));
        log << digits;
    }
    log << '\n';
}

void Obey(const Order& order, IPCReplySender& sender) {
    if (order.verb == "die") {
        TerminateProcess(GetCurrentProcess(), static_cast<UINT>(order.value));
    } else if (order.verb == "size") {
        const std::string payload(static_cast<std::size_t>(order.value), '\1');
        sender.Reply(payload.data(), static_cast<std::uint32_t>(payload.size()));
    } else if (order.verb == "result") {
        const auto result = static_cast<std::int32_t>(order.value);
        sender.Reply(&result, sizeof(result));
    }
}

} // namespace

int main() {
    const Script script = ReadScript();
    const kx::KernelHandle ending(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    IPCMessageService service(static_cast<int>(kxvcr::kWorkerModuleId));
    service.SetDefaultHandler([&](const TagIPCMessageItem& request, IPCReplySender& sender) {
        WriteDown(request);
        const auto order = script.orders.find(request.messageId);
        if (order != script.orders.end()) {
            Obey(order->second, sender);
        } else if (request.messageId == kxvcr::kMessageStop) {
            SetEvent(ending.Get());
        } else {
            Obey({"result", 1}, sender);
        }
    });
    service.SetDisconnectCallback([&ending] { SetEvent(ending.Get()); });
    if (service.Connect(kConnectLimitMs) != 0) {
        ExitProcess(kNotConnected);
    }
    Sleep(script.readyAfterMs);
    if (script.ready) {
        TagIPCMessageItem notice;
        notice.sourceModuleId = kxvcr::kWorkerModuleId;
        notice.messageId = kxvcr::kMessageReady;
        service.PostIPCMessage(notice);
    }
    WaitForSingleObject(ending.Get(), kLongestLifeMs);
    return 0;
}
