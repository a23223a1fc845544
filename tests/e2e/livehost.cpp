// livehost.exe PORT CLIENTS: a host that starts the live server and keeps it until its standard input is closed.
// Its first line says "port N", or what failed; its last one "ended CODE after N ms", with the worker's exit code and
// the time from the stop to the worker's end.
#include "screenrecordproxy.h"

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

using KxScreenRecord::ScreenRecordProxy;

constexpr unsigned int kTimeoutMs = 20000;

struct ProxyReleaser {
    void operator()(ScreenRecordProxy* proxy) const { ScreenRecordProxy::ReleaseProxy(proxy); }
};

int Fail(const char* step, unsigned long code) {
    std::printf("%s failed: %lu\n", step, code);
    return 1;
}

unsigned long EndWorker(ScreenRecordProxy& proxy) {
    proxy.Stop();
    return proxy.WaitLiveProcessEnd(kTimeoutMs);
}

} // namespace

int main(int count, char** texts) {
    if (count != 3) {
        return Fail("reading the arguments", 0);
    }
    const std::unique_ptr<ScreenRecordProxy, ProxyReleaser> proxy(ScreenRecordProxy::CreateProxy());
    if (!proxy) {
        return Fail("creating the proxy", 0);
    }
    if (const unsigned long error = proxy->RunProcess(kTimeoutMs); error != 0) {
        return Fail("starting the worker", error);
    }
    if (!proxy->Prepare({}, kTimeoutMs)) {
        return Fail("preparing", EndWorker(*proxy));
    }
    KxScreenRecord::LiveServerParam param;
    param.port = static_cast<std::uint32_t>(std::strtoul(texts[1], nullptr, 10));
    param.maxClients = static_cast<std::uint32_t>(std::strtoul(texts[2], nullptr, 10));
    int port = 0;
    if (!proxy->StartLiveServer(param, kTimeoutMs, port)) {
        return Fail("starting the live server", EndWorker(*proxy));
    }
    std::printf("port %d\n", port);
    std::fflush(stdout);

    while (std::getchar() != EOF) {
        continue;
    }
    const auto start = std::chrono::steady_clock::now();
    const unsigned long code = EndWorker(*proxy);
    const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    std::printf("ended %lu after %lld ms\n", code, static_cast<long long>(time.count()));
    return 0;
}
