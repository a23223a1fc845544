// What one viewer of the video stream is still to be sent.
#include "worker/live/fragmentqueue.h"

#include <chrono>
#include <utility>

namespace kxvcr {

namespace {

constexpr MediaTime kMostTime = std::chrono::seconds(2);
constexpr std::size_t kMostBytes = std::size_t{4} << 20; // room for a key picture of a large screen

bool IsKeyPicture(const Fragment& fragment) noexcept {
    return fragment.stream == Stream::Picture && fragment.isKey;
}

} // namespace

void FragmentQueue::Add(const Fragment& fragment) {
    if (m_waitsForKey && !IsKeyPicture(fragment)) {
        return;
    }
    m_waitsForKey = false;
    m_bytes += fragment.bytes->size();
    m_fragments.push_back(fragment);
    if (IsTooMuch()) {
        NoteGap();
    }
}

void FragmentQueue::NoteGap() {
    if (m_waitsForKey) {
        return;
    }
    ++m_lostGroups;
    m_fragments.clear();
    m_bytes = 0;
    m_waitsForKey = true;
}

Fragment FragmentQueue::Take() {
    if (m_fragments.empty()) {
        return {};
    }
    Fragment next = std::move(m_fragments.front());
    m_fragments.pop_front();
    m_bytes -= next.bytes->size();
    return next;
}

// A single fragment is never too much, however long it has waited: it is the newest.
bool FragmentQueue::IsTooMuch() const noexcept {
    return m_fragments.size() > 1 &&
           (m_bytes > kMostBytes || m_fragments.back().time - m_fragments.front().time > kMostTime);
}

} // namespace kxvcr
