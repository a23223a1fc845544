// The real file functions under other names.
#define FileExists RealFileExists
#define GetFileSha256Hex RealGetFileSha256Hex
#include "suite/util/file.cpp" // NOLINT(bugprone-suspicious-include)
#undef FileExists
#undef GetFileSha256Hex

#include "fakes/realutil.h"

namespace realutil {

bool FileExists(const std::string& path) {
    return DE::RealFileExists(path);
}
std::string GetFileSha256Hex(const std::string& path) {
    return DE::RealGetFileSha256Hex(path);
}

} // namespace realutil
