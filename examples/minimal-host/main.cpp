// A complete host: records the whole screen for a while. usage: minimal-host FILE.mp4 [SECONDS]
#include <screenrecordproxy.h>

#include <cstdio>
#include <cwchar>
#include <memory>

using KxScreenRecord::ScreenRecordParam;
using KxScreenRecord::ScreenRecordProxy;

namespace {

constexpr unsigned int kTimeoutMs = 10000;
constexpr unsigned long kDefaultSeconds = 10;

struct Releaser {
    void operator()(ScreenRecordProxy* proxy) const { ScreenRecordProxy::ReleaseProxy(proxy); }
};

int Fail(const char* step, unsigned long code) {
    std::fprintf(stderr, "%s failed, code %lu\n", step, code);
    return 1;
}

} // namespace

int wmain(int count, wchar_t** arguments) {
    if (count < 2) {
        return Fail("no file was named: the start", 0);
    }
    const unsigned long seconds = count > 2 ? std::wcstoul(arguments[2], nullptr, 10) : kDefaultSeconds;

    const std::unique_ptr<ScreenRecordProxy, Releaser> proxy(ScreenRecordProxy::CreateProxy());
    if (!proxy) {
        return Fail("CreateProxy", 0);
    }
    if (const unsigned long code = proxy->RunProcess(kTimeoutMs); code != 0) {
        return Fail("RunProcess", code);
    }
    ScreenRecordParam picture; // zeroes: the whole screen, 30 frames per second, quality 80, no pointer
    picture.drawCursor = 1;
    if (!proxy->Prepare(picture, kTimeoutMs)) {
        return Fail("Prepare", 0);
    }
    if (!proxy->StartLocalRecord(arguments[1], 0, kTimeoutMs)) {
        return Fail("StartLocalRecord", 0);
    }

    Sleep(seconds * 1000); // a real host goes on with its work

    proxy->Stop();
    if (const unsigned long code = proxy->WaitLiveProcessEnd(kTimeoutMs); code != 0) {
        return Fail("the end of the recording", code);
    }
    return 0;
}
