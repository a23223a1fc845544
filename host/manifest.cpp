// The manifest is changed as a document: what others wrote into it stays.
#include "host/manifest.h"

#include "common/win/handle.h"
#include "common/win/utf8.h"
#include "host/console.h"
#include "host/folders.h"
#include "host/json.h"

#include "sdk/util/file.h"
#include "sdk/util/text.h"

#include <tinyxml2.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace kxrecord {

namespace {

constexpr wchar_t kConfigFolder[] = L"\\config";
constexpr wchar_t kManifestName[] = L"\\CheckFileIntergrity.xml";
constexpr char kRootName[] = "Files";
constexpr char kEntryName[] = "FileAttributes";
constexpr char kPathAttribute[] = "Path";
constexpr char kDigestAttribute[] = "Sha256";

struct Entry {
    std::string path; ///< as the checker compares it: in the ANSI code page
    std::string digest;
};

struct StreamCloser {
    void operator()(std::FILE* stream) const noexcept {
        static_cast<void>(std::fclose(stream)); // read only: nothing can be lost
    }
};
using InputStream = std::unique_ptr<std::FILE, StreamCloser>;

/** A file that exists only until it is renamed: removed by the destructor, whatever happened. */
class TemporaryFile {
public:
    explicit TemporaryFile(std::wstring path) : m_path(std::move(path)) {}
    ~TemporaryFile() { DeleteFileW(m_path.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::wstring& Path() const { return m_path; }

private:
    std::wstring m_path;
};

// No entry when the file is missing, unreadable, or has a name outside the code page that the checker uses.
std::optional<Entry> Digest(const std::wstring& hostFolder, const std::wstring& file) {
    const std::wstring fullPath = hostFolder + L"\\" + file;
    const std::string narrowPath = DE::UnicodeToANSI(fullPath);
    if (!IsFile(fullPath) || DE::ANSIToUnicode(narrowPath) != fullPath) {
        return std::nullopt;
    }
    Entry entry{DE::UnicodeToANSI(file), DE::GetFileSha256Hex(narrowPath)};
    if (entry.digest.empty()) {
        return std::nullopt;
    }
    return entry;
}

// A missing manifest is an empty one.
bool Load(const std::wstring& path, tinyxml2::XMLDocument& document) {
    if (!IsFile(path)) {
        document.InsertEndChild(document.NewElement(kRootName));
        return true;
    }
    std::FILE* opened = nullptr;
    _wfopen_s(&opened, path.c_str(), L"rb");
    const InputStream stream(opened);
    return stream && document.LoadFile(stream.get()) == tinyxml2::XML_SUCCESS && document.RootElement() != nullptr;
}

bool HasPath(const tinyxml2::XMLElement& element, const Entry& entry) {
    return element.Attribute(kPathAttribute, entry.path.c_str()) != nullptr;
}

// The checker reads the first FileAttributes element and every sibling after it, whatever its name. The first entry
// for the path gets the digest, later ones for the same path go.
void Enter(tinyxml2::XMLElement& root, const Entry& entry) {
    tinyxml2::XMLElement* element = root.FirstChildElement(kEntryName);
    while (element != nullptr && !HasPath(*element, entry)) {
        element = element->NextSiblingElement();
    }
    if (element == nullptr) {
        element = root.InsertNewChildElement(kEntryName);
        element->SetAttribute(kPathAttribute, entry.path.c_str());
    }
    element->SetAttribute(kDigestAttribute, entry.digest.c_str());
    for (tinyxml2::XMLElement* later = element->NextSiblingElement(); later != nullptr;) {
        tinyxml2::XMLElement* const next = later->NextSiblingElement();
        if (HasPath(*later, entry)) {
            root.DeleteChild(later);
        }
        later = next;
    }
}

bool WriteWhole(const std::wstring& path, const tinyxml2::XMLPrinter& text) {
    const kx::FileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    const auto size = static_cast<DWORD>(text.CStrSize() - 1);
    DWORD written = 0;
    return file && WriteFile(file.Get(), text.CStr(), size, &written, nullptr) && written == size &&
           FlushFileBuffers(file.Get());
}

bool Replace(const std::wstring& path, const tinyxml2::XMLDocument& document) {
    tinyxml2::XMLPrinter text;
    document.Print(&text);
    const TemporaryFile temporary(path + L"." + std::to_wstring(GetCurrentProcessId()) + L".tmp");
    return WriteWhole(temporary.Path(), text) &&
           MoveFileExW(temporary.Path().c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
}

Exit Fail(const ManifestOptions& options, const Failure& failure) {
    if (options.json) {
        Write(Stream::Output, kx::WideFromUtf8(ErrorObject(failure).dump()) + L"\n");
    } else {
        Write(Stream::Error, L"kxrecord: " + failure.sentence + L"\n");
    }
    return failure.exit;
}

void Tell(const ManifestOptions& options, const std::wstring& manifest, const std::vector<Entry>& entries) {
    if (!options.json) {
        for (std::size_t i = 0; i < entries.size(); ++i) {
            Write(Stream::Output, kx::WideFromUtf8(entries[i].digest) + L"  " + options.files[i] + L"\n");
        }
        return;
    }
    nlohmann::ordered_json object = SchemaObject();
    object["manifest"] = kx::Utf8FromWide(manifest);
    object["files"] = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < entries.size(); ++i) {
        object["files"].push_back({{"file", kx::Utf8FromWide(options.files[i])}, {"sha256", entries[i].digest}});
    }
    Write(Stream::Output, kx::WideFromUtf8(object.dump(2)) + L"\n");
}

} // namespace

Exit WriteManifest(const ManifestOptions& options) {
    const std::wstring hostFolder = HostFolder();
    std::vector<Entry> entries;
    for (const std::wstring& file : options.files) {
        std::optional<Entry> entry = Digest(hostFolder, file);
        if (!entry) {
            return Fail(options, HostFailure(Exit::NoSuchFile,
                                             L"\"" + file + L"\" is not a readable file in " + hostFolder +
                                                 L"; nothing was written. Give its path relative to that folder"));
        }
        entries.push_back(std::move(*entry));
    }

    const std::wstring folder = hostFolder + kConfigFolder;
    const std::wstring path = folder + kManifestName;
    tinyxml2::XMLDocument document;
    if (!Load(path, document)) {
        return Fail(options, HostFailure(Exit::Manifest, path + L" is not a readable XML file; repair or remove it, "
                                                                L"then try again"));
    }
    for (const Entry& entry : entries) {
        Enter(*document.RootElement(), entry);
    }

    CreateDirectoryW(folder.c_str(), nullptr);
    if (!Replace(path, document)) {
        return Fail(options,
                    HostFailure(Exit::Manifest, path + L" cannot be written; see that you may write in that folder"));
    }
    Tell(options, path, entries);
    return Exit::Success;
}

} // namespace kxrecord
