/**
 * @file
 * What an enumeration of the system hands out, one call of the program's own function after the other.
 */
#pragma once

#include <new>
#include <utility>
#include <vector>

namespace kxrecord {

/** The handles of one enumeration. No exception may pass through the system, so that a lack of memory is told later. */
template <class Handle>
class HandleList {
public:
    void Add(Handle handle) noexcept {
        try {
            m_handles.push_back(handle);
        } catch (const std::bad_alloc&) {
            m_isComplete = false;
        }
    }

    /** All of them. @throws std::bad_alloc when one is missing */
    std::vector<Handle> Take() {
        if (!m_isComplete) {
            throw std::bad_alloc();
        }
        return std::move(m_handles);
    }

private:
    std::vector<Handle> m_handles;
    bool m_isComplete = true;
};

} // namespace kxrecord
