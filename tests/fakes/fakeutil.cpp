// The list of calls and the reset of the scriptable Util.dll.
#include "fakes/fakeutil_internal.h"

namespace fakeutil {

namespace {

struct State {
    std::mutex mutex;
    std::vector<Call> calls;
    std::vector<std::function<void()>> resets;
};

State& TheState() {
    static State s_state;
    return s_state;
}

} // namespace

void Record(std::string function, std::string argument) {
    const std::lock_guard guard(TheState().mutex);
    TheState().calls.push_back({std::move(function), std::move(argument)});
}

OnReset::OnReset(std::function<void()> reset) {
    const std::lock_guard guard(TheState().mutex);
    TheState().resets.push_back(std::move(reset));
}

void Reset() {
    std::vector<std::function<void()>> resets;
    {
        const std::lock_guard guard(TheState().mutex);
        TheState().calls.clear();
        resets = TheState().resets;
    }
    for (const std::function<void()>& reset : resets) {
        reset();
    }
}

std::vector<Call> Calls() {
    const std::lock_guard guard(TheState().mutex);
    return TheState().calls;
}

std::vector<std::string> ArgumentsOf(const std::string& function) {
    std::vector<std::string> arguments;
    for (const Call& call : Calls()) {
        if (call.function == function) {
            arguments.push_back(call.argument);
        }
    }
    return arguments;
}

} // namespace fakeutil
