/** @file Files and folders of a test program. */
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace kxtest {

/** The running program's own file, and the folder that it lies in. */
std::filesystem::path OwnProgram();
std::filesystem::path OwnFolder();

/** Writes a whole file; its folder is made when it is missing. Throws std::runtime_error on failure. */
void WriteFileBytes(const std::filesystem::path& path, std::string_view bytes);

/** A whole file's bytes. Throws std::runtime_error on failure. */
std::string ReadFileBytes(const std::filesystem::path& path);

/** A new empty folder, removed with everything in it when the object goes. */
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

    /** The path of a file in the folder, in the process's code page. */
    std::string Name(const std::string& file) const { return (m_path / file).string(); }

private:
    std::filesystem::path m_path;
};

/** Puts @p folder first on this process's PATH, which its children get, and takes it off when the object goes. */
class SearchFolder {
public:
    explicit SearchFolder(const std::filesystem::path& folder);
    ~SearchFolder();
    SearchFolder(const SearchFolder&) = delete;
    SearchFolder& operator=(const SearchFolder&) = delete;

private:
    std::wstring m_former;
};

/** Makes @p folder the current directory and goes back when the object goes. */
class CurrentFolder {
public:
    explicit CurrentFolder(const std::filesystem::path& folder);
    ~CurrentFolder();
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;

private:
    std::filesystem::path m_former;
};

} // namespace kxtest
