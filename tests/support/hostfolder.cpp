// Files and folders of a test program, made and removed with an object.
#include "support/hostfolder.h"

#include "common/win/modulepath.h"

#include <windows.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace kxtest {

std::filesystem::path OwnProgram() {
    return kx::ModulePath(nullptr).value();
}

std::filesystem::path OwnFolder() {
    return OwnProgram().parent_path();
}

void WriteFileBytes(const std::filesystem::path& path, std::string_view bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

std::string ReadFileBytes(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path.string());
    }
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

TempFolder::TempFolder() {
    static std::atomic<int> s_number{0};
    m_path = std::filesystem::temp_directory_path() /
             ("kxtest-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(s_number.fetch_add(1)));
    std::filesystem::create_directories(m_path);
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

SearchFolder::SearchFolder(const std::filesystem::path& folder)
    : m_former(GetEnvironmentVariableW(L"PATH", nullptr, 0), L'\0') {
    m_former.resize(GetEnvironmentVariableW(L"PATH", m_former.data(), static_cast<DWORD>(m_former.size())));
    SetEnvironmentVariableW(L"PATH", (folder.wstring() + L";" + m_former).c_str());
}

SearchFolder::~SearchFolder() {
    SetEnvironmentVariableW(L"PATH", m_former.c_str());
}

CurrentFolder::CurrentFolder(const std::filesystem::path& folder) : m_former(std::filesystem::current_path()) {
    std::filesystem::current_path(folder);
}

CurrentFolder::~CurrentFolder() {
    std::error_code ignored;
    std::filesystem::current_path(m_former, ignored);
}

} // namespace kxtest
