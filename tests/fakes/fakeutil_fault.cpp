// Exceptions on demand.
#include "fakes/fakeutil_fault.h"

#include "common/win/utf8.h"
#include "fakes/fakeutil_fault_internal.h"

#include <map>
#include <new>

namespace fakeutil {

namespace {

struct State {
    std::mutex mutex;
    std::map<std::string, int> callsLeft;
};

State& TheState() {
    static State s_state;
    return s_state;
}

const OnReset kForgetThrows([] {
    const std::lock_guard guard(TheState().mutex);
    TheState().callsLeft.clear();
});

} // namespace

void ThrowFrom(const std::string& function, int nth) {
    const std::lock_guard guard(TheState().mutex);
    TheState().callsLeft[function] = nth;
}

bool IsThrowPending() {
    const std::lock_guard guard(TheState().mutex);
    return !TheState().callsLeft.empty();
}

void ThrowIfAsked(const std::string& function) {
    const std::lock_guard guard(TheState().mutex);
    const auto found = TheState().callsLeft.find(function);
    if (found == TheState().callsLeft.end() || --found->second > 0) {
        return;
    }
    TheState().callsLeft.erase(found);
    throw std::bad_alloc();
}

std::string Utf8(const std::wstring& text) {
    return kx::Utf8FromWide(text);
}

} // namespace fakeutil
