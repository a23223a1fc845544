/**
 * @file
 * The H.264 encoder's library, openh264.dll, which is loaded at run time so that a distributor can ship the binary
 * that its maker licenses.
 */
#pragma once

#include "common/win/handle.h"

#include <filesystem>
#include <memory>

class ISVCEncoder;

namespace kxvcr {

/** The loaded library; its encoders keep it loaded. May be used by any thread. */
class H264Library {
public:
    /** Gives an encoder back to the library that made it. */
    struct EncoderDeleter {
        std::shared_ptr<const H264Library> library;
        void operator()(ISVCEncoder* encoder) const noexcept { library->m_destroy(encoder); }
    };
    using Encoder = std::unique_ptr<ISVCEncoder, EncoderDeleter>;

    /** Where the worker's own copy is: beside the running program; empty when its folder is not told. @throws
     * std::bad_alloc */
    static std::filesystem::path DefaultPath();

    /**
     * @param path absolute; DLLs that it needs come from its folder and from the system's only
     * @return null, after an ERROR in the log, when the file is missing, is no such library, or has another binary
     *         interface than the worker was built for
     * @throws std::bad_alloc
     */
    static std::shared_ptr<const H264Library> Load(const std::filesystem::path& path);

    /** A new encoder of @p library, not yet initialised; null when the library refuses. */
    static Encoder CreateEncoder(std::shared_ptr<const H264Library> library) noexcept;

private:
    using CreateFunction = int(ISVCEncoder** encoder);
    using DestroyFunction = void(ISVCEncoder* encoder);

    H264Library() noexcept = default;
    bool Resolve() noexcept;

    kx::Module m_module;
    CreateFunction* m_create = nullptr;
    DestroyFunction* m_destroy = nullptr;
};

} // namespace kxvcr
