#include "report.h"

#include "console.h"
#include "text.h"

#include <nlohmann/json.hpp>

namespace {

using nlohmann::ordered_json;
using std::chrono::milliseconds;

constexpr milliseconds kProgressInterval{1000};

double Seconds(milliseconds time) {
    return static_cast<double>(time.count()) / 1000;
}

ordered_json Event(const char* name) {
    return {{"event", name}};
}

void Send(const ordered_json& event) {
    Write(Stream::Output, WideFromUtf8(event.dump()) + L"\n");
}

ordered_json OrNull(const std::optional<std::uint64_t>& number) {
    return number ? ordered_json(*number) : ordered_json();
}

class JsonReport : public Report {
public:
    void Error(unsigned long code, const std::wstring& sentence) override {
        ordered_json event = Event("error");
        event["code"] = code;
        event["message"] = Utf8FromWide(sentence);
        Send(event);
    }

    void Warning(const std::wstring& sentence) override {
        ordered_json event = Event("warning");
        event["message"] = Utf8FromWide(sentence);
        Send(event);
    }

    void Keeping(std::chrono::seconds length) override {
        ordered_json event = Event("keeping");
        event["seconds"] = length.count();
        Send(event);
    }

    void NotRecorded(unsigned long exitCode) override {
        ordered_json event = Event("finished");
        event["file"] = nullptr;
        event["exitCode"] = exitCode;
        Send(event);
    }

    void Recording(const RecordStart& start) override {
        m_file = Utf8FromWide(start.file);
        ordered_json event = Event("started");
        event["file"] = m_file;
        event["framesPerSecond"] = start.framesPerSecond;
        event["replaySeconds"] = start.replay.count();
        Send(event);
    }

    void RecordProgress(const RecordState& state) override {
        if (!IsDue(state.elapsed)) {
            return;
        }
        ordered_json event = Event("progress");
        event["seconds"] = Seconds(state.elapsed);
        event["framesDue"] = state.framesDue;
        event["bytes"] = OrNull(state.fileBytes);
        event["diskFreeBytes"] = OrNull(state.diskFreeBytes);
        Send(event);
    }

    void Recorded(const RecordState& state, unsigned long exitCode) override {
        ordered_json event = Event("finished");
        event["file"] = m_file;
        event["seconds"] = Seconds(state.elapsed);
        event["bytes"] = OrNull(state.fileBytes);
        event["exitCode"] = exitCode;
        Send(event);
    }

    void Serving(const LiveStart& start) override {
        ordered_json event = Event("started");
        event["url"] = Utf8FromWide(start.url);
        event["networkUrl"] = start.networkUrl.empty() ? ordered_json() : ordered_json(Utf8FromWide(start.networkUrl));
        event["port"] = start.port;
        Send(event);
    }

    void LiveProgress(milliseconds elapsed) override {
        if (!IsDue(elapsed)) {
            return;
        }
        ordered_json event = Event("progress");
        event["seconds"] = Seconds(elapsed);
        Send(event);
    }

    void Served(milliseconds elapsed, unsigned long exitCode) override {
        ordered_json event = Event("finished");
        event["seconds"] = Seconds(elapsed);
        event["exitCode"] = exitCode;
        Send(event);
    }

private:
    bool IsDue(milliseconds elapsed) {
        if (elapsed < m_nextProgress) {
            return false;
        }
        m_nextProgress = elapsed - elapsed % kProgressInterval + kProgressInterval;
        return true;
    }

    std::string m_file;
    milliseconds m_nextProgress = kProgressInterval;
};

} // namespace

std::unique_ptr<Report> MakeJsonReport() {
    return std::make_unique<JsonReport>();
}
