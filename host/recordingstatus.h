/**
 * @file
 * What the worker tells of its recording while it runs and after it has ended (sdk/vcr/recordingstatus.h).
 */
#pragma once

#include "sdk/vcr/recordingstatus.h"

#include <windows.h>

#include <memory>
#include <optional>

namespace kxrecord {

/** Keeps the worker's section open from the start of the file on, so that the last figures outlive the worker. */
class StatusView {
public:
    /** Opens the section of this process's worker; one that is not there leaves the view empty. */
    StatusView() noexcept;

    /** The figures as they stand; none without a section, of another version, or while the worker died writing. */
    std::optional<kxvcr::RecordingStatus> Read() const noexcept;

private:
    struct Unmapper {
        void operator()(const void* view) const noexcept { UnmapViewOfFile(view); }
    };

    std::unique_ptr<const void, Unmapper> m_view;
};

} // namespace kxrecord
