/**
 * @file
 * Reaches a class's private members without touching its header: an explicit instantiation may name them.
 *
 *     struct LockTag { using Type = CRITICAL_SECTION Thing::*; };
 *     template struct kxtest::Expose<LockTag, &Thing::m_lock>;
 *     auto& lock = thing.*kxtest::kPrivate<LockTag>;
 */
#pragma once

namespace kxtest {

/** The pointer to the member that a tag stands for; set before main runs. */
template <class Tag>
inline typename Tag::Type kPrivate{};

template <class Tag, typename Tag::Type Member>
struct Expose {
    static inline const bool kExposed = (kPrivate<Tag> = Member, true);
};

} // namespace kxtest
