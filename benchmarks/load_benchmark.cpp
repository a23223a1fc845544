// What loading the library costs a host, beside a library that imports the same and does nothing; and the memory of a
// proxy that nobody uses. Linked without the C++ run-time library, which is loaded with either of them.
#include "benchmarks/pairs.h"
#include "common/win/modulepath.h"

#include <windows.h>

#include <cstdio>
#include <string>

namespace {

using bench::Goal;
using bench::Require;
using bench::Timed;

HMODULE Load(const wchar_t* name) {
    const HMODULE module = LoadLibraryW((kx::ModuleFolder(nullptr).value() + L"\\" + name).c_str());
    Require(module != nullptr, "the library does not load");
    return module;
}

double LoadAndFree(const wchar_t* name) {
    return Timed(1, [&] { FreeLibrary(Load(name)); });
}

/** Memory that this process alone has, stacks included. */
double PrivateKibibytes() {
    std::size_t bytes = 0;
    MEMORY_BASIC_INFORMATION region{};
    for (const char* at = nullptr; VirtualQuery(at, &region, sizeof region) != 0;
         at = static_cast<const char*>(region.BaseAddress) + region.RegionSize) {
        if (region.State == MEM_COMMIT && region.Type == MEM_PRIVATE) {
            bytes += region.RegionSize;
        }
    }
    return static_cast<double>(bytes) / 1024;
}

// The functions are called by the names that the library exports them under.
void TellMemory(const char* createName, const char* releaseName) {
    const HMODULE module = Load(L"ScreenRecordProxy.dll");
    using Create = void*();
    using Release = void(void*);
    const auto create = reinterpret_cast<Create*>(reinterpret_cast<void*>(GetProcAddress(module, createName)));
    const auto release = reinterpret_cast<Release*>(reinterpret_cast<void*>(GetProcAddress(module, releaseName)));
    if (create != nullptr && release != nullptr) {
        const double before = PrivateKibibytes();
        void* const proxy = create();
        const double after = PrivateKibibytes();
        release(proxy);
        std::printf("| an idle proxy: private memory | - | %.0f KiB | - | - | - | - | - |\n", after - before);
    }
    FreeLibrary(module);
}

} // namespace

int main(int argc, char** argv) {
    return bench::Run(argc, argv, [](bench::Runner& runner) {
        runner.Measure({"loading and freeing the library", "a library that imports the same and does nothing",
                        Goal::None(), [] { return LoadAndFree(L"ScreenRecordProxy.dll"); },
                        [] { return LoadAndFree(L"emptylibrary.dll"); }});
        if (!runner.WantsGrowth()) {
            TellMemory("_ZN14KxScreenRecord17ScreenRecordProxy11CreateProxyEv",
                       "_ZN14KxScreenRecord17ScreenRecordProxy12ReleaseProxyEPS0_");
        }
    });
}
