// Whom the live server answers.
#include "worker/live/liverules.h"

#include "common/hex.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace kxvcr {

namespace {

constexpr std::string_view kScheme = "http://";

char Lower(char letter) noexcept {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](char letter) { return Lower(letter); });
    return lower;
}

// Names in letters of other alphabets have no place in a Host field.
void AddComputerName(std::vector<std::string>& names, COMPUTER_NAME_FORMAT format) {
    std::array<char, 256> name;
    auto size = static_cast<DWORD>(name.size());
    if (GetComputerNameExA(format, name.data(), &size) && size != 0) {
        names.push_back(Lower(std::string_view(name.data(), size)));
    }
}

bool IsPort(std::string_view text) {
    return std::ranges::all_of(text, [](char digit) { return digit >= '0' && digit <= '9'; });
}

// The host without its port, in lower case; empty when there is none.
std::string HostOf(std::string_view authority) {
    const std::size_t bracket = authority.starts_with('[') ? authority.find(']') : 0;
    const std::size_t colon = bracket == std::string_view::npos ? bracket : authority.find(':', bracket);
    if (colon == std::string_view::npos) {
        return Lower(authority);
    }
    return IsPort(authority.substr(colon + 1)) ? Lower(authority.substr(0, colon)) : std::string();
}

bool IsAddress(const std::string& host) {
    std::array<std::byte, sizeof(in6_addr)> address;
    if (host.starts_with('[') && host.ends_with(']')) {
        return inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), address.data()) == 1;
    }
    return inet_pton(AF_INET, host.c_str(), address.data()) == 1;
}

} // namespace

std::optional<LiveTarget> ReadTarget(const HttpRequest& request) {
    if (request.hosts.size() > 1 || (request.hosts.empty() && request.hostIsRequired)) {
        return std::nullopt;
    }
    LiveTarget target;
    if (!request.hosts.empty()) {
        target.authority = request.hosts.front();
    }
    std::string_view rest = request.target;
    if (Lower(rest.substr(0, kScheme.size())) == kScheme) {
        rest.remove_prefix(kScheme.size());
        const std::size_t end = std::min(rest.find_first_of("/?"), rest.size());
        target.authority = rest.substr(0, end);
        rest.remove_prefix(end);
        if (!rest.starts_with('/')) {
            target.path.push_back('/');
        }
    } else if (!rest.starts_with('/')) {
        return std::nullopt;
    }
    target.path += rest.substr(0, rest.find('?'));
    return target;
}

std::string KeyPath(const std::optional<LiveKey>& key) {
    std::string path;
    if (key) {
        path.push_back('/');
        for (const std::uint8_t byte : *key) {
            kx::AppendHex(path, byte);
        }
    }
    return path;
}

std::optional<std::string_view> BehindKey(std::string_view keyPath, std::string_view path) noexcept {
    if (path.size() <= keyPath.size()) {
        return std::nullopt;
    }
    unsigned difference = 0;
    for (std::size_t i = 0; i < keyPath.size(); ++i) {
        difference |= static_cast<unsigned>(keyPath[i] ^ path[i]);
    }
    const std::string_view rest = path.substr(keyPath.size());
    difference |= static_cast<unsigned>(rest.front() ^ '/');
    return difference == 0 ? std::optional(rest) : std::nullopt;
}

HostRule HostRule::Loopback() {
    return HostRule({"localhost", "127.0.0.1", "[::1]"}, false);
}

HostRule HostRule::AllInterfaces() {
    std::vector<std::string> names = {"localhost"};
    for (const COMPUTER_NAME_FORMAT format :
         {ComputerNameNetBIOS, ComputerNameDnsHostname, ComputerNameDnsFullyQualified}) {
        AddComputerName(names, format);
    }
    return HostRule(std::move(names), true);
}

bool HostRule::Allows(std::string_view authority) const {
    const std::string host = HostOf(authority);
    return std::ranges::find(m_names, host) != m_names.end() || (m_everyAddress && IsAddress(host));
}

} // namespace kxvcr
