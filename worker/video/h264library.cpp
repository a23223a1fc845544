// Loads openh264.dll by its full path and refuses a version whose structures the worker does not know.
#include "worker/video/h264library.h"

#include "common/win/modulepath.h"
#include "worker/log.h"

#include <wels/codec_api.h>
#include <wels/codec_ver.h>

#include <optional>
#include <string>
#include <utility>

namespace kxvcr {

namespace {

constexpr wchar_t kLibraryName[] = L"openh264.dll";

// The versions that share the structures of the header that the worker is built with.
constexpr unsigned int kMajor = 2;
constexpr unsigned int kFirstMinor = 3;
constexpr unsigned int kLastMinor = 4;
static_assert(OPENH264_MAJOR == kMajor && OPENH264_MINOR >= kFirstMinor && OPENH264_MINOR <= kLastMinor);

using VersionFunction = void(OpenH264Version* version);

template <class Function>
Function* Find(HMODULE module, const char* name) noexcept {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

bool IsKnown(const OpenH264Version& version) noexcept {
    return version.uMajor == kMajor && version.uMinor >= kFirstMinor && version.uMinor <= kLastMinor;
}

} // namespace

std::filesystem::path H264Library::DefaultPath() {
    const std::optional<std::wstring> folder = kx::ModuleFolder(nullptr);
    return folder ? std::filesystem::path(*folder) / kLibraryName : std::filesystem::path();
}

std::shared_ptr<const H264Library> H264Library::Load(const std::filesystem::path& path) {
    const std::shared_ptr<H264Library> library(new H264Library);
    library->m_module = kx::Module(
        LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32));
    if (!library->m_module) {
        const DWORD error = GetLastError();
        KXVCR_LOG_ERROR(L"Cannot load the H.264 encoder " << path.wstring() << L": error " << error);
        return nullptr;
    }
    if (!library->Resolve()) {
        KXVCR_LOG_ERROR(path.wstring() << L" is not the H.264 encoder: it lacks a function");
        return nullptr;
    }
    OpenH264Version version = {};
    Find<VersionFunction>(library->m_module.Get(), "WelsGetCodecVersionEx")(&version);
    if (!IsKnown(version)) {
        KXVCR_LOG_ERROR(L"The H.264 encoder " << path.wstring() << L" is version " << version.uMajor << L'.'
                                              << version.uMinor << L'.' << version.uRevision << L"; the worker knows "
                                              << kMajor << L'.' << kFirstMinor << L" to " << kMajor << L'.'
                                              << kLastMinor);
        return nullptr;
    }
    return library;
}

H264Library::Encoder H264Library::CreateEncoder(std::shared_ptr<const H264Library> library) noexcept {
    ISVCEncoder* encoder = nullptr;
    if (library->m_create(&encoder) != 0) {
        encoder = nullptr;
    }
    return Encoder(encoder, {std::move(library)});
}

bool H264Library::Resolve() noexcept {
    m_create = Find<CreateFunction>(m_module.Get(), "WelsCreateSVCEncoder");
    m_destroy = Find<DestroyFunction>(m_module.Get(), "WelsDestroySVCEncoder");
    return m_create != nullptr && m_destroy != nullptr &&
           Find<VersionFunction>(m_module.Get(), "WelsGetCodecVersionEx") != nullptr;
}

} // namespace kxvcr
