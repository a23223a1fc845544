/**
 * @file
 * Refuses memory to the code under test.
 */
#pragma once

namespace kxvcr::test {

/** As long as it lives, one allocation of this thread with operator new fails: the one after @p granted others. */
class RefuseOneAllocation {
public:
    explicit RefuseOneAllocation(int granted) noexcept;
    ~RefuseOneAllocation();
    RefuseOneAllocation(const RefuseOneAllocation&) = delete;
    RefuseOneAllocation& operator=(const RefuseOneAllocation&) = delete;

    /** Whether it was asked for. */
    bool HasRefused() const noexcept;
};

} // namespace kxvcr::test
