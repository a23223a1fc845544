// otherhost.exe FILE: records the screen for a second, with the installed library and worker. The exit code is the
// number of the step that failed, 0 for none.
#include <screenrecordproxy.h>
#include <sdk/vcr/workerprotocol.h>

#include <string>

namespace {

using KxScreenRecord::ScreenRecordProxy;

constexpr unsigned int kTimeoutMs = 30000;
constexpr DWORD kRecordedMs = 1000;

int Record(ScreenRecordProxy& proxy, const std::wstring& path) {
    if (proxy.RunProcess(kTimeoutMs) != 0) {
        return 2;
    }
    if (!proxy.Prepare({}, kTimeoutMs) || !proxy.StartLocalRecord(path.c_str(), 0, kTimeoutMs)) {
        return 3;
    }
    Sleep(kRecordedMs);
    proxy.Stop();
    const unsigned long ended = proxy.WaitLiveProcessEnd(kTimeoutMs);
    return ended == static_cast<unsigned long>(kxvcr::ExitCode::Finished) ? 0 : 4;
}

} // namespace

int main(int count, char** texts) {
    ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
    if (count != 2 || proxy == nullptr) {
        return 1;
    }
    const std::string path(texts[1]);
    const int result = Record(*proxy, std::wstring(path.begin(), path.end()));
    ScreenRecordProxy::ReleaseProxy(proxy);
    return result;
}
