/**
 * @file
 * Refuses memory to the code under test.
 */
#pragma once

namespace kxvcr::test {

/** What is refused of the allocations behind those that are granted. */
enum class Refused { One, All };

/** As long as it lives, allocations of this thread with operator new fail: the one after @p granted others, or all. */
class RefuseAllocations {
public:
    explicit RefuseAllocations(int granted, Refused refused = Refused::One) noexcept;
    ~RefuseAllocations();
    RefuseAllocations(const RefuseAllocations&) = delete;
    RefuseAllocations& operator=(const RefuseAllocations&) = delete;

    /** Whether one was asked for. */
    bool HasRefused() const noexcept;
};

/** As long as it lives, each @p every th allocation of the other threads with operator new fails. One at a time. */
class RefuseElsewhere {
public:
    explicit RefuseElsewhere(unsigned every) noexcept;
    ~RefuseElsewhere();
    RefuseElsewhere(const RefuseElsewhere&) = delete;
    RefuseElsewhere& operator=(const RefuseElsewhere&) = delete;

    /** Allocations that failed so far. */
    unsigned Refusals() const noexcept;
};

} // namespace kxvcr::test
