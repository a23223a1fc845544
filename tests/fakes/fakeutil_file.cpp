// Scriptable file functions.
#include "fakes/fakeutil_internal.h"
#include "fakes/realutil.h"

#include "sdk/util/file.h"

namespace {

fakeutil::Scripted<bool, const std::string&> g_fileExists;
fakeutil::Scripted<std::string, const std::string&> g_fileSha256Hex;

} // namespace

namespace fakeutil {

void ScriptFileExists(Script<bool, const std::string&> script) {
    g_fileExists.Set(std::move(script));
}
void ScriptFileSha256Hex(Script<std::string, const std::string&> script) {
    g_fileSha256Hex.Set(std::move(script));
}

} // namespace fakeutil

namespace DE {

bool FileExists(const std::string& path) {
    fakeutil::Record("DE::FileExists", path);
    return g_fileExists.Decide([&] { return realutil::FileExists(path); }, path);
}

std::string GetFileSha256Hex(const std::string& path) {
    fakeutil::Record("DE::GetFileSha256Hex", path);
    return g_fileSha256Hex.Decide([&] { return realutil::GetFileSha256Hex(path); }, path);
}

} // namespace DE
