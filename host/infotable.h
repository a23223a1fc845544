/**
 * @file
 * The queries of the library that "kxrecord info" asks: one table.
 */
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <variant>

namespace kxrecord {

/** What a query answered. */
struct Answer {
    /** Nothing, a truth, a number or a text. An empty text is no answer either. */
    std::variant<std::monostate, bool, std::int64_t, std::wstring> value;
    std::wstring meaning; ///< what a number stands for; may be empty
};

/** What a query has to be told. A query without one is asked once, every other one for each that the user named. */
enum class Argument {
    None,
    File,       ///< relative to the host's folder, as the manifest writes it
    Function,   ///< GROUP/NAME in the function switch file
    Setting,    ///< name of a value in the suite's per-user settings
    PowerValue, ///< name of a value in the system's power settings
    LogType,    ///< number of a log type
};

/** Whether asking leaves the machine as it is. */
enum class Effect {
    OnlyReads,
    MayWrite, ///< the library may write the registry while it answers
};

struct Query {
    const wchar_t* group;
    const wchar_t* name;
    Effect effect;
    Argument argument;
    Answer (*ask)(const std::wstring& argument);
};

inline constexpr wchar_t kDisplayGroup[] = L"display";

/** Every query, group by group. */
std::span<const Query> Queries();

} // namespace kxrecord
