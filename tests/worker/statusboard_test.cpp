// The recording's figures in shared memory, as a host reads them.
#include "worker/statusboard.h"

#include "support/importpatch.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <thread>

namespace kxvcr {

namespace {

using MapHook = kxtest::ImportHook<"KERNEL32.dll", "MapViewOfFile", decltype(MapViewOfFile)>;
using UnmapHook = kxtest::ImportHook<"KERNEL32.dll", "UnmapViewOfFile", decltype(UnmapViewOfFile)>;

constexpr std::uint32_t kHost = 4'000'000'001; // no process has such an id

// A host's view of the section.
class View {
public:
    View() {
        wchar_t name[80] = {};
        _snwprintf(name, std::size(name) - 1, kRecordingStatusNameFormat, static_cast<unsigned long>(kHost));
        m_section = kx::KernelHandle(OpenFileMappingW(FILE_MAP_READ, FALSE, name));
        if (m_section) {
            m_status = static_cast<const RecordingStatus*>(
                MapViewOfFile(m_section.Get(), FILE_MAP_READ, 0, 0, sizeof(RecordingStatus)));
        }
    }
    ~View() { UnmapViewOfFile(m_status); }
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    bool IsThere() const { return m_status != nullptr; }
    RecordingStatus Read() const {
        for (;;) {
            const std::uint32_t before = *const_cast<const volatile std::uint32_t*>(&m_status->sequence);
            std::atomic_thread_fence(std::memory_order_acquire);
            const RecordingStatus read = *m_status;
            std::atomic_thread_fence(std::memory_order_acquire);
            if (before % 2 == 0 && before == *const_cast<const volatile std::uint32_t*>(&m_status->sequence)) {
                return read;
            }
        }
    }

private:
    kx::KernelHandle m_section;
    const RecordingStatus* m_status = nullptr;
};

RecordingStatus Figures(std::uint64_t value) {
    RecordingStatus status;
    status.pictures = status.repeats = status.dropped = status.bytes = value;
    status.liveStart = status.length = static_cast<std::int64_t>(value);
    return status;
}

TEST(StatusBoard, Figures_ReachTheHostAndOutliveTheWorker) {
    auto board = std::make_unique<StatusBoard>();
    ASSERT_TRUE(board->Open(kHost));
    const View view;
    ASSERT_TRUE(view.IsThere());
    EXPECT_EQ(view.Read().version, kRecordingStatusVersion);

    RecordingStatus status = Figures(7);
    status.isFinished = 1;
    board->Write(status);
    board.reset();

    EXPECT_EQ(view.Read().pictures, 7u);
    EXPECT_EQ(view.Read().length, 7);
    EXPECT_EQ(view.Read().isFinished, 1u);
}

TEST(StatusBoard, SecondWorkerOfAHost_BeginsAnew) {
    auto first = std::make_unique<StatusBoard>();
    ASSERT_TRUE(first->Open(kHost));
    const View view;
    first->Write(Figures(7));
    first.reset();

    StatusBoard second;
    ASSERT_TRUE(second.Open(kHost));

    EXPECT_EQ(view.Read().pictures, 0u);
}

TEST(StatusBoard, OpenedAgain_GivesItsFirstViewBack) {
    const HMODULE program = GetModuleHandleW(nullptr);
    const MapHook mapped([](auto... arguments) { return MapHook::Original(arguments...); }, program);
    const UnmapHook unmapped([](LPCVOID view) { return UnmapHook::Original(view); }, program);
    {
        StatusBoard board;
        ASSERT_TRUE(board.Open(kHost));
        ASSERT_TRUE(board.Open(kHost));
    }

    EXPECT_EQ(mapped.Calls(), 2);
    EXPECT_EQ(unmapped.Calls(), 2);
}

TEST(StatusBoard, WhileFiguresChange_NobodyReadsHalfOfThem) {
    StatusBoard board;
    ASSERT_TRUE(board.Open(kHost));
    std::jthread writer([&board](const std::stop_token& stop) {
        for (std::uint64_t value = 1; !stop.stop_requested(); ++value) {
            board.Write(Figures(value));
        }
    });
    const View view;

    for (int i = 0; i < 20'000; ++i) {
        const RecordingStatus read = view.Read();
        ASSERT_EQ(read.pictures, read.bytes);
        ASSERT_EQ(read.pictures, static_cast<std::uint64_t>(read.length));
    }
}

TEST(StatusBoard, WithoutASection_TakesFigures) {
    StatusBoard board;

    board.Write(Figures(1));
}

} // namespace

} // namespace kxvcr
