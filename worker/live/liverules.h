/**
 * @file
 * Whom the live server answers: what a request's address says, and whether it may be answered.
 */
#pragma once

#include "worker/live/httpserver.h"
#include "worker/settings.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kxvcr {

/** A request's address, taken apart. */
struct LiveTarget {
    std::string authority; ///< name and port that the client believes it talks to; empty when it did not say
    std::string path;      ///< begins with a slash, without the query
};

/**
 * @return nothing when the request's address or its Host is against the rules of HTTP: the answer is then 400. An
 *         address that names its host replaces the field.
 */
std::optional<LiveTarget> ReadTarget(const HttpRequest& request);

/** The path that a key puts before every path: "/" and 32 digits; empty without a key. */
std::string KeyPath(const std::optional<LiveKey>& key);

/**
 * Takes the key's path off the beginning of @p path, in a time that does not depend on how much of it is right.
 * @return what is left, from its slash on; nothing when @p path does not begin with it
 */
std::optional<std::string_view> BehindKey(std::string_view keyPath, std::string_view path) noexcept;

/** Names of hosts that a request may name, for a server without a key. */
class HostRule {
public:
    /** For a server on loopback: its address and "localhost". */
    static HostRule Loopback();

    /** For a server on all interfaces: every address, and the names that the machine has. */
    static HostRule AllInterfaces();

    /**
     * Whether the server may believe that a request to @p authority was meant for it. A page of another site can point
     * its own name to this machine, and its scripts would then pass for the server's own; the name gives them away.
     */
    bool Allows(std::string_view authority) const;

    HostRule(std::vector<std::string> names, bool everyAddress)
        : m_names(std::move(names)),
          m_everyAddress(everyAddress) {}

private:
    std::vector<std::string> m_names; // in lower case
    bool m_everyAddress;
};

} // namespace kxvcr
