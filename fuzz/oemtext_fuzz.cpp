// Fuzz target: the text file of an OEM image, in UTF-16 or in the machine's code page, up to the version that comes out
// of it. Holds for every input: the version has no control character, no blank at its ends and no underscore.
#include "sdk/util/registry.h"
#include "sdk/util/wmi.h"
#include "systemenvironment.h"
#include "systemenvironment/narrowtext.h"
#include "systemenvironment/sharedqueries.h"

#include <windows.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string>

namespace {

void Require(bool isTrue) {
    if (!isTrue) {
        std::abort();
    }
}

std::wstring g_stored; // the registry's value, into which the file's text is copied

} // namespace

bool DE::Registry::SetValue(HKEY, const std::wstring&, const std::wstring&, const std::wstring& value, DWORD) {
    g_stored = value;
    return true;
}

// The query that reads the value back, without its limit: the fuzzer's texts are longer.
std::string sharedqueries::VersionFromRegistry() {
    const kx::NarrowText narrow(g_stored.c_str());
    return narrow ? TrimmedOemVersion(narrow.Get()) : std::string();
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    native::SetFile({data, size});
    g_stored.clear();
    const std::wstring text = SystemEnvironment::GetUnicodeString();
    Require(text.size() * sizeof(wchar_t) <= size);
    const bool isUnicode = SystemEnvironment::IsFileUnicode();
    Require(!isUnicode || size >= 2);
    const std::string version = SystemEnvironment::GetOEMVersion();
    Require(!isUnicode || g_stored == text);
    Require(version.size() <= size);
    Require(std::ranges::none_of(version, [](unsigned char c) { return std::iscntrl(c) != 0 || c == '_'; }));
    Require(version.empty() || version.front() != ' ');
    return 0;
}
