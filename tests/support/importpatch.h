/**
 * @file
 * Replaces functions that a loaded module imports, for as long as an object lives.
 *
 * Only the calls of that one module are redirected: its entry in the import table is swapped. A function that the
 * module does not import by that name from that DLL is an error (std::runtime_error), so that a test can never pass
 * because its patch silently did nothing.
 */
#pragma once

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

namespace kxtest {

/** The module that the unit tests examine. Never null: throws when it is not loaded. */
HMODULE ProxyModule();

/** One swapped pointer of an import table; the constructor swaps, the destructor restores. */
class ImportSlot {
public:
    /**
     * @param dll name of the exporting DLL as the import directory has it, in any letter case
     * @param function the imported name
     * @throws std::runtime_error when the module has no such import
     */
    ImportSlot(HMODULE module, const char* dll, const char* function, void* replacement);
    ~ImportSlot();
    ImportSlot(const ImportSlot&) = delete;
    ImportSlot& operator=(const ImportSlot&) = delete;

    void* Original() const { return m_original; }

private:
    void** m_slot;
    void* m_original;
};

/** Replaces an import by a plain function. @tparam Fn the function's type, e.g. decltype(CreateEventW) */
template <class Fn>
class ImportPatch {
public:
    ImportPatch(HMODULE module, const char* dll, const char* function, Fn* replacement)
        : m_slot(module, dll, function, reinterpret_cast<void*>(replacement)) {}

    /** The function that the module would have called. */
    Fn* Original() const { return reinterpret_cast<Fn*>(m_slot.Original()); }

private:
    ImportSlot m_slot;
};

/** A name as a template argument. */
template <std::size_t Size>
struct ImportName {
    consteval ImportName(const char (&name)[Size]) { std::copy_n(name, Size, text); }
    char text[Size]{};
};

template <ImportName Dll, ImportName Function, class Fn>
class ImportHook;

/**
 * Replaces an import by any callable, which may hold state. One hook for each imported name at a time.
 *
 *     using CreateEventHook = ImportHook<"KERNEL32.dll", "CreateEventW", decltype(CreateEventW)>;
 *     CreateEventHook hook([](auto...) -> HANDLE { SetLastError(1450); return nullptr; });
 */
template <ImportName Dll, ImportName Function, class R, class... Args>
class ImportHook<Dll, Function, R(Args...)> {
public:
    using Callable = std::function<R(Args...)>;

    explicit ImportHook(Callable replacement, HMODULE module = ProxyModule())
        : m_occupation(std::move(replacement)),
          m_patch(module, Dll.text, Function.text, &Forward) {
        s_original.store(m_patch.Original());
    }

    /** Calls the function that was replaced. */
    static R Original(Args... args) { return s_original.load()(std::forward<Args>(args)...); }

    /** Calls made through this hook so far. */
    int Calls() const { return s_calls.load(); }

private:
    // Taken before the table is patched and given back after it is restored.
    struct Occupation {
        explicit Occupation(Callable replacement) {
            const std::lock_guard guard(s_mutex);
            if (s_callable) {
                throw std::logic_error(std::string("hooked twice: ") + Function.text);
            }
            s_callable = std::make_shared<const Callable>(std::move(replacement));
            s_calls.store(0);
        }
        ~Occupation() {
            const std::lock_guard guard(s_mutex);
            s_callable.reset();
        }
        Occupation(const Occupation&) = delete;
        Occupation& operator=(const Occupation&) = delete;
    };

    static R Forward(Args... args) {
        s_calls.fetch_add(1);
        std::shared_ptr<const Callable> callable;
        {
            const std::lock_guard guard(s_mutex);
            callable = s_callable;
        }
        // A thread may have read the patched pointer just before it was restored.
        return callable ? (*callable)(std::forward<Args>(args)...) : Original(std::forward<Args>(args)...);
    }

    static inline std::mutex s_mutex;
    static inline std::shared_ptr<const Callable> s_callable;
    static inline std::atomic<R (*)(Args...)> s_original{nullptr};
    static inline std::atomic<int> s_calls{0};

    Occupation m_occupation;
    ImportPatch<R(Args...)> m_patch;
};

} // namespace kxtest
