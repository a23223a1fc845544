// What the host reads of the worker's section.
#include "host/recordingstatus.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <iterator>

namespace kxrecord {
namespace {

/** The worker's side: the section of this process. */
class Section {
public:
    Section() {
        wchar_t name[64] = {};
        static_cast<void>(
            std::swprintf(name, std::size(name), kxvcr::kRecordingStatusNameFormat, GetCurrentProcessId()));
        m_section =
            CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(kxvcr::RecordingStatus), name);
        m_status = static_cast<kxvcr::RecordingStatus*>(
            MapViewOfFile(m_section, FILE_MAP_WRITE, 0, 0, sizeof(kxvcr::RecordingStatus)));
        *m_status = {};
    }
    ~Section() {
        UnmapViewOfFile(m_status);
        CloseHandle(m_section);
    }
    Section(const Section&) = delete;
    Section& operator=(const Section&) = delete;

    kxvcr::RecordingStatus& Status() { return *m_status; }

private:
    HANDLE m_section = nullptr;
    kxvcr::RecordingStatus* m_status = nullptr;
};

TEST(StatusView, WithoutASection_TellsNothing) {
    EXPECT_EQ(StatusView().Read().has_value(), false);
}

TEST(StatusView, FiguresOfTheWorker_AreRead) {
    Section section;
    section.Status().sequence = 2;
    section.Status().pictures = 150;
    section.Status().liveStart = 30'000'000;
    const StatusView view;
    const std::optional<kxvcr::RecordingStatus> status = view.Read();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->pictures, 150u);
    EXPECT_EQ(status->liveStart, 30'000'000);
}

TEST(StatusView, AfterTheWorkersEnd_StillHasTheLastFigures) {
    std::optional<StatusView> view;
    {
        Section section;
        view.emplace();
        section.Status().pictures = 7;
    }
    ASSERT_TRUE(view->Read());
    EXPECT_EQ(view->Read()->pictures, 7u);
}

TEST(StatusView, WorkerThatDiedWriting_LeavesNothingToTell) {
    Section section;
    section.Status().sequence = 3;
    EXPECT_FALSE(StatusView().Read());
    section.Status().sequence = 4;
    EXPECT_TRUE(StatusView().Read());
}

TEST(StatusView, OtherVersion_IsNotRead) {
    Section section;
    section.Status().version = kxvcr::kRecordingStatusVersion + 1;
    EXPECT_FALSE(StatusView().Read());
}

} // namespace
} // namespace kxrecord
