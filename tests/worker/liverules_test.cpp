// Whom the live server answers.
#include "worker/live/liverules.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <string>

namespace kxvcr {

namespace {

HttpRequest RequestFor(const std::string& target, std::vector<std::string> hosts = {"localhost"}) {
    return {"GET", target, std::move(hosts), true};
}

LiveKey KeyOf(std::uint8_t first, std::uint8_t last) {
    LiveKey key = {};
    key.front() = first;
    key.back() = last;
    return key;
}

TEST(ReadTarget, PathWithQuery_IsThePathAlone) {
    const std::optional<LiveTarget> target = ReadTarget(RequestFor("/stream?1/2?3", {"localhost:80"}));

    ASSERT_TRUE(target);
    EXPECT_EQ(target->path, "/stream");
    EXPECT_EQ(target->authority, "localhost:80");
}

TEST(ReadTarget, WholeAddress_ReplacesTheHost) {
    const std::optional<LiveTarget> target = ReadTarget(RequestFor("HTTP://example.org:8080/status?a", {"localhost"}));

    ASSERT_TRUE(target);
    EXPECT_EQ(target->path, "/status");
    EXPECT_EQ(target->authority, "example.org:8080");
}

TEST(ReadTarget, WholeAddressWithoutPath_IsTheRoot) {
    EXPECT_EQ(ReadTarget(RequestFor("http://localhost"))->path, "/");
    EXPECT_EQ(ReadTarget(RequestFor("http://localhost?a"))->path, "/");
}

TEST(ReadTarget, AddressThatIsNoPath_IsRefused) {
    for (const char* target : {"*", "", "status", "https://localhost/", "ftp://localhost/", "localhost:80"}) {
        EXPECT_FALSE(ReadTarget(RequestFor(target))) << target;
    }
}

TEST(ReadTarget, HostMissingOrTwice_IsRefused) {
    EXPECT_FALSE(ReadTarget(RequestFor("/", {})));
    EXPECT_FALSE(ReadTarget(RequestFor("/", {"localhost", "localhost"})));
    EXPECT_FALSE(ReadTarget(RequestFor("http://localhost/", {})));
}

TEST(ReadTarget, HostMissingInAnOldRequest_IsTaken) {
    HttpRequest request = RequestFor("/status", {});
    request.hostIsRequired = false;

    EXPECT_EQ(ReadTarget(request)->authority, "");
}

TEST(KeyPath, Key_IsItsDigitsInLowerCase) {
    EXPECT_EQ(KeyPath(KeyOf(0xAB, 0x0F)), "/ab00000000000000000000000000000f");
    EXPECT_EQ(KeyPath(std::nullopt), "");
}

TEST(BehindKey, RightKey_LeavesTheRest) {
    const std::string key = KeyPath(KeyOf(1, 2));

    EXPECT_EQ(BehindKey(key, key + "/"), "/");
    EXPECT_EQ(BehindKey(key, key + "/stream.mp4"), "/stream.mp4");
    EXPECT_EQ(BehindKey("", "/stream.mp4"), "/stream.mp4");
}

TEST(BehindKey, KeyWrongByABit_IsNone) {
    const std::string key = KeyPath(KeyOf(0x5A, 0xC3));
    for (std::size_t byte = 0; byte < LiveKey{}.size(); ++byte) {
        for (int bit = 0; bit < 8; ++bit) {
            LiveKey wrong = KeyOf(0x5A, 0xC3);
            wrong[byte] = static_cast<std::uint8_t>(wrong[byte] ^ 1 << bit);

            EXPECT_FALSE(BehindKey(key, KeyPath(wrong) + "/")) << byte << "." << bit;
        }
    }
}

TEST(BehindKey, PathWithoutTheWholeKey_IsNone) {
    const std::string key = KeyPath(KeyOf(1, 2));
    for (const std::string& path : {std::string("/"), std::string(), key, key.substr(0, 20) + "/", key + "0/",
                                    "/" + key + "/", key + "?", std::string("/status")}) {
        EXPECT_FALSE(BehindKey(key, path)) << path;
    }
}

TEST(HostRule, Loopback_AllowsItsNamesAlone) {
    const HostRule rule = HostRule::Loopback();
    for (const char* host : {"localhost", "LOCALHOST:80", "127.0.0.1", "127.0.0.1:65535", "[::1]", "[::1]:8080"}) {
        EXPECT_TRUE(rule.Allows(host)) << host;
    }
    for (const char* host :
         {"", "example.org", "example.org:80", "localhost.example.org", "127.0.0.1.example.org", "[::2]", "127.0.0.2",
          "localhost:80:80", "localhost:x", "[::1", "::1", ":80", "127.0.0.1@a", "192.168.1.1"}) {
        EXPECT_FALSE(rule.Allows(host)) << host;
    }
}

TEST(HostRule, AllInterfaces_AllowAddressesAndTheMachinesNames) {
    const HostRule rule = HostRule::AllInterfaces();
    std::array<char, 256> name;
    auto size = static_cast<DWORD>(name.size());
    ASSERT_TRUE(GetComputerNameExA(ComputerNameDnsHostname, name.data(), &size));
    const std::string machine(name.data(), size);

    for (const std::string& host : {machine, machine + ":8080", std::string("localhost"), std::string("192.168.1.7"),
                                    std::string("192.168.1.7:80"), std::string("[fe80::1]:80")}) {
        EXPECT_TRUE(rule.Allows(host)) << host;
    }
    for (const std::string& host : {std::string("example.org"), machine + ".example.org", std::string("192.168.1"),
                                    std::string("192.168.1.7.example.org"), std::string("[fe80::1"),
                                    std::string("[example.org]"), std::string("0x7f000001"), std::string()}) {
        EXPECT_FALSE(rule.Allows(host)) << host;
    }
}

} // namespace

} // namespace kxvcr
