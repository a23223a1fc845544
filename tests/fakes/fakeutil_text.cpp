// Scriptable text functions.
#include "fakes/fakeutil_text.h"

#include "fakes/fakeutil_fault_internal.h"
#include "fakes/realutil_text.h"

#include "sdk/util/text.h"

namespace fakeutil {

namespace {

Scripted<bool, const std::wstring&> g_narrowCopyFails;

struct Blocks {
    std::mutex mutex;
    std::vector<const void*> handedOut;
};

Blocks& TheBlocks() {
    static Blocks s_blocks;
    return s_blocks;
}

const OnReset kForgetBlocks([] {
    const std::lock_guard guard(TheBlocks().mutex);
    TheBlocks().handedOut.clear();
});

} // namespace

void ScriptNarrowCopyFails(Script<bool, const std::wstring&> script) {
    g_narrowCopyFails.Set(std::move(script));
}

std::vector<const void*> NarrowCopies() {
    const std::lock_guard guard(TheBlocks().mutex);
    return TheBlocks().handedOut;
}

} // namespace fakeutil

namespace DE {

char* WcharToChar(const wchar_t* text) {
    fakeutil::ThrowIfAsked("DE::WcharToChar");
    if (text != nullptr && fakeutil::g_narrowCopyFails.Decide([] { return false; }, std::wstring(text))) {
        return nullptr;
    }
    char* block = realutil::WcharToChar(text);
    if (block != nullptr) {
        const std::lock_guard guard(fakeutil::TheBlocks().mutex);
        fakeutil::TheBlocks().handedOut.push_back(block);
    }
    return block;
}

std::string UnicodeToANSI(const std::wstring& text) {
    fakeutil::ThrowIfAsked("DE::UnicodeToANSI");
    return realutil::UnicodeToANSI(text);
}

std::wstring ANSIToUnicode(const std::string& text) {
    fakeutil::ThrowIfAsked("DE::ANSIToUnicode");
    return realutil::ANSIToUnicode(text);
}

std::string TrimSP(const std::string& text) {
    fakeutil::ThrowIfAsked("DE::TrimSP");
    return realutil::TrimSP(text);
}

std::string LowerCase(const std::string& text) {
    fakeutil::ThrowIfAsked("DE::LowerCase");
    return realutil::LowerCase(text);
}

std::string GetRandomString(int length) {
    fakeutil::ThrowIfAsked("DE::GetRandomString");
    return realutil::GetRandomString(length);
}

} // namespace DE
