/**
 * @file
 * Control interface of the scriptable Util.dll. Every call of the code under test is recorded in one list; a script may
 * decide its result, and what no script decides is answered by the real library's code.
 */
#pragma once

#include "sdk/util/xml.h"

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#if defined(KXUTIL_BUILD)
#define FAKEUTIL_API __declspec(dllexport)
#else
#define FAKEUTIL_API __declspec(dllimport)
#endif

namespace fakeutil {

/** One call: the function, as the library's headers name it, and its argument. */
struct Call {
    std::string function;
    std::string argument;

    bool operator==(const Call&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, const Call& call) {
    return out << call.function << "(" << call.argument << ")";
}

/** Decides the result of a call, or leaves it to the real code by returning nothing. */
template <class Result, class... Args>
using Script = std::function<std::optional<Result>(Args...)>;

/** Forgets all calls and all scripts. */
FAKEUTIL_API void Reset();

/** All calls since Reset, oldest first. */
FAKEUTIL_API std::vector<Call> Calls();

/** The arguments of the calls of one function, oldest first. */
FAKEUTIL_API std::vector<std::string> ArgumentsOf(const std::string& function);

FAKEUTIL_API void ScriptFileExists(Script<bool, const std::string&> script);
FAKEUTIL_API void ScriptFileSha256Hex(Script<std::string, const std::string&> script);
FAKEUTIL_API void ScriptLoadFile(Script<KxXmlError, const std::string&> script);
/** Decides whether RootElement() gives a null element. */
FAKEUTIL_API void ScriptRootElementIsNull(Script<bool> script);

} // namespace fakeutil
