/**
 * @file
 * The boundary at which exceptions end, for a function that has nothing else to do there.
 */
#pragma once

namespace kx {

/** What @p query answers, or @p otherwise when it throws. */
template <class Answer, class Query>
Answer AnswerOr(Answer otherwise, const Query& query) noexcept {
    try {
        return query();
    } catch (...) {
        return otherwise;
    }
}

} // namespace kx
