// Walks the import directory of a loaded module and swaps one entry of its address table.
#include "support/importpatch.h"

#include <cstdint>
#include <cstring>
#include <string>

namespace kxtest {

namespace {

const std::byte* BaseOf(HMODULE module) {
    return reinterpret_cast<const std::byte*>(module);
}

template <class T>
T* At(HMODULE module, std::uint64_t offset) {
    return reinterpret_cast<T*>(const_cast<std::byte*>(BaseOf(module) + offset));
}

const IMAGE_DATA_DIRECTORY& ImportDirectory(HMODULE module) {
    const auto* dos = At<const IMAGE_DOS_HEADER>(module, 0);
    const auto* headers = At<const IMAGE_NT_HEADERS64>(module, static_cast<std::uint64_t>(dos->e_lfanew));
    return headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
}

// One DLL may have several descriptors, so all are searched.
void** FindSlot(HMODULE module, const char* dll, const char* function) {
    const IMAGE_DATA_DIRECTORY& directory = ImportDirectory(module);
    if (directory.VirtualAddress == 0) {
        return nullptr;
    }
    for (auto* entry = At<const IMAGE_IMPORT_DESCRIPTOR>(module, directory.VirtualAddress); entry->Name != 0; ++entry) {
        if (_stricmp(At<const char>(module, entry->Name), dll) != 0 || entry->OriginalFirstThunk == 0) {
            continue;
        }
        const auto* names = At<const IMAGE_THUNK_DATA64>(module, entry->OriginalFirstThunk);
        auto* slots = At<void*>(module, entry->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++slots) {
            if (IMAGE_SNAP_BY_ORDINAL64(names->u1.Ordinal)) {
                continue;
            }
            const auto* name = At<const IMAGE_IMPORT_BY_NAME>(module, names->u1.AddressOfData);
            if (std::strcmp(reinterpret_cast<const char*>(name->Name), function) == 0) {
                return slots;
            }
        }
    }
    return nullptr;
}

void WriteSlot(void** slot, void* value) {
    DWORD protection = 0;
    if (VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection) == FALSE) {
        throw std::runtime_error("the import table cannot be made writable");
    }
    InterlockedExchangePointer(slot, value);
    VirtualProtect(slot, sizeof(*slot), protection, &protection);
}

} // namespace

HMODULE ProxyModule() {
    const HMODULE module = GetModuleHandleW(L"ScreenRecordProxy.dll");
    if (module == nullptr) {
        throw std::runtime_error("ScreenRecordProxy.dll is not loaded");
    }
    return module;
}

ImportSlot::ImportSlot(HMODULE module, const char* dll, const char* function, void* replacement)
    : m_slot(FindSlot(module, dll, function)),
      m_original(nullptr) {
    if (m_slot == nullptr) {
        throw std::runtime_error(std::string("no import to patch: ") + dll + " " + function);
    }
    m_original = *m_slot;
    WriteSlot(m_slot, replacement);
}

ImportSlot::~ImportSlot() {
    WriteSlot(m_slot, m_original);
}

} // namespace kxtest
