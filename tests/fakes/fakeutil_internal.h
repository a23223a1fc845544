/**
 * @file
 * Shared by the parts of the scriptable Util.dll. A new part of the library is a file of its own: it implements the
 * header's functions with Record and a Scripted object, and calls the real code for what is not scripted.
 */
#pragma once

#include "fakes/fakeutil.h"

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace fakeutil {

/** Appends to the list of calls. */
void Record(std::string function, std::string argument);

/** A function that Reset calls; construct at namespace scope. */
class OnReset {
public:
    explicit OnReset(std::function<void()> reset);
};

/** The script of one function; an object of namespace scope that Reset empties. */
template <class Result, class... Args>
class Scripted {
public:
    void Set(Script<Result, Args...> script) {
        const std::lock_guard guard(m_mutex);
        m_script = std::move(script);
    }

    /** The script's decision, or what @p real returns. */
    template <class Real>
    Result Decide(Real&& real, Args... args) const {
        Script<Result, Args...> script;
        {
            const std::lock_guard guard(m_mutex);
            script = m_script;
        }
        std::optional<Result> decided = script ? script(args...) : std::nullopt;
        return decided ? std::move(*decided) : real();
    }

private:
    mutable std::mutex m_mutex;
    Script<Result, Args...> m_script;
    OnReset m_onReset{[this] { Set(nullptr); }};
};

} // namespace fakeutil
