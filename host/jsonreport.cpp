// What a recording or a live view tells a machine. docs/kxrecord.md is the manual of the events and is checked against
// what the program writes.
#include "host/report.h"

#include "common/win/utf8.h"
#include "host/console.h"
#include "host/json.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kxrecord {

namespace {

using nlohmann::ordered_json;
using std::chrono::milliseconds;

constexpr milliseconds kProgressInterval{1000};

double Seconds(milliseconds time) {
    return static_cast<double>(time.count()) / 1000;
}

double MediaSeconds(std::int64_t time) {
    return static_cast<double>(time) / kxvcr::kRecordingTicksPerSecond;
}

ordered_json Event(const char* name) {
    ordered_json event = SchemaObject();
    event["event"] = name;
    return event;
}

void Send(const ordered_json& event) {
    Write(Stream::Output, kx::WideFromUtf8(event.dump()) + L"\n");
}

ordered_json OrNull(const std::optional<std::uint64_t>& number) {
    return number ? ordered_json(*number) : ordered_json();
}

// What only the worker knows; null where it does not tell.
void AddFigures(const std::optional<kxvcr::RecordingStatus>& worker, ordered_json& event) {
    event["pictures"] = worker ? ordered_json(worker->pictures) : ordered_json();
    event["repeats"] = worker ? ordered_json(worker->repeats) : ordered_json();
    event["dropped"] = worker ? ordered_json(worker->dropped) : ordered_json();
}

class JsonReport : public Report {
public:
    void Error(const Failure& failure) override { Send(ErrorObject(failure)); }

    void Warning(const std::wstring& sentence) override {
        ordered_json event = Event("warning");
        event["message"] = kx::Utf8FromWide(sentence);
        Send(event);
    }

    void Window(const WindowInfo& window) override {
        ordered_json event = Event("window");
        event.update(WindowObject(window));
        Send(event);
    }

    void Keeping(std::chrono::seconds length) override {
        ordered_json event = Event("keeping");
        event["seconds"] = length.count();
        Send(event);
    }

    void NotRecorded(Exit exit) override {
        ordered_json event = Event("finished");
        event["file"] = nullptr;
        event["exitCode"] = static_cast<int>(exit);
        Send(event);
    }

    void Recording(const RecordStart& start) override {
        m_file = kx::Utf8FromWide(start.file);
        ordered_json event = Event("started");
        event["file"] = m_file;
        event["framesPerSecond"] = start.framesPerSecond;
        event["replaySeconds"] = start.replay ? ordered_json(Seconds(*start.replay)) : ordered_json();
        Send(event);
    }

    void RecordProgress(const RecordState& state) override {
        if (!IsDue(state.elapsed)) {
            return;
        }
        ordered_json event = Event("progress");
        event["seconds"] = Seconds(state.elapsed);
        event["framesDue"] = state.framesDue;
        AddFigures(state.worker, event);
        event["bytes"] = OrNull(state.fileBytes);
        event["diskFreeBytes"] = OrNull(state.diskFreeBytes);
        Send(event);
    }

    void Recorded(const RecordState& state, Exit exit) override {
        ordered_json event = Event("finished");
        event["file"] = m_file;
        event["seconds"] = Seconds(state.elapsed);
        AddFigures(state.worker, event);
        event["fileSeconds"] = state.worker ? ordered_json(MediaSeconds(state.worker->length)) : ordered_json();
        event["liveStartSeconds"] = state.worker ? ordered_json(MediaSeconds(state.worker->liveStart)) : ordered_json();
        event["bytes"] = OrNull(state.fileBytes);
        event["exitCode"] = static_cast<int>(exit);
        Send(event);
    }

    void Serving(const LiveStart& start) override {
        ordered_json event = Event("started");
        event["url"] = kx::Utf8FromWide(start.url);
        event["networkUrl"] = kxrecord::OrNull(start.networkUrl);
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

    void Served(milliseconds elapsed, Exit exit) override {
        ordered_json event = Event("finished");
        event["seconds"] = Seconds(elapsed);
        event["exitCode"] = static_cast<int>(exit);
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

ordered_json SchemaObject() {
    return {{"schema", kJsonSchema}};
}

ordered_json OrNull(const std::wstring& text) {
    return text.empty() ? ordered_json() : ordered_json(kx::Utf8FromWide(text));
}

ordered_json ErrorObject(const Failure& failure) {
    const auto exit = static_cast<int>(failure.exit);
    ordered_json event = Event("error");
    event["code"] = failure.code != 0 ? ordered_json(failure.code) : ordered_json(exit);
    event["exitCode"] = exit;
    event["message"] = kx::Utf8FromWide(failure.sentence);
    return event;
}

std::unique_ptr<Report> MakeJsonReport() {
    return std::make_unique<JsonReport>();
}

} // namespace kxrecord
