/**
 * @file
 * Allocations that fail on demand, for the libraries under test.
 *
 * The C++ library is a DLL here: operator new, and every string and container of the libraries under test, comes to one
 * malloc in its import table. That entry and the entries of the modules' own malloc and calloc are replaced for as long
 * as a MemoryFault lives. Only what the thread that runs an attempt asks for is counted, and only while it runs;
 * any thread may free it meanwhile.
 */
#pragma once

#include "support/importpatch.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace kxtest {

/** Which allocations of an attempt fail. */
struct Failing {
    enum class Mode { None, Once, FromThereOn };

    Mode mode = Mode::None;
    std::size_t nth = 0; ///< 1 is the first

    static constexpr Failing Nothing() { return {}; }
    static constexpr Failing Once(std::size_t nth) { return {Mode::Once, nth}; }
    static constexpr Failing From(std::size_t nth) { return {Mode::FromThereOn, nth}; }
};
inline std::ostream& operator<<(std::ostream& out, const Failing& failing) {
    constexpr const char* kNames[] = {"no allocation fails", "fails once: allocation ",
                                      "fails from there on: allocation "};
    out << kNames[static_cast<int>(failing.mode)];
    return failing.mode == Failing::Mode::None ? out : out << failing.nth;
}

/** What an attempt did with memory. */
struct MemoryUse {
    std::size_t allocations = 0; ///< asked for, whether they failed or not
    std::size_t failures = 0;
    std::size_t leftOver = 0;   ///< blocks of the attempt that were not freed when it ended
    std::size_t olderFreed = 0; ///< blocks from before the attempt that it freed, such as a buffer that it replaced
};

class MemoryFault {
public:
    /** @param modules file names of loaded DLLs whose own malloc, calloc, realloc and free are followed as well */
    explicit MemoryFault(const std::vector<std::string>& modules);
    ~MemoryFault();
    MemoryFault(const MemoryFault&) = delete;
    MemoryFault& operator=(const MemoryFault&) = delete;

    /** Runs @p attempt with failing allocations. What it returns to its caller has to be gone when it ends. */
    MemoryUse Run(Failing failing, const std::function<void()>& attempt);

private:
    std::vector<std::unique_ptr<ImportSlot>> m_slots;
};

} // namespace kxtest
