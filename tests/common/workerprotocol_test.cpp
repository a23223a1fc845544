// The pages that tell hosts the worker's numbers say what the header says.
#include "sdk/vcr/workerprotocol.h"

#include "screenrecordproxy.h"
#include "support/hostfolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Row = std::vector<std::string>;
using testing::StartsWith;

Row Cells(const std::string& line) {
    Row cells;
    std::istringstream text(line.substr(1));
    for (std::string cell; std::getline(text, cell, '|');) {
        const std::size_t first = cell.find_first_not_of(' ');
        cells.push_back(first == std::string::npos ? "" : cell.substr(first, cell.find_last_not_of(' ') + 1 - first));
    }
    return cells;
}

// The rows of the table on a page whose head is that line, without the head.
std::vector<Row> Table(const char* page, const std::string& head) {
    std::istringstream lines(kxtest::ReadFileBytes(kxtest::OwnFolder() / "docs" / page));
    std::string line;
    while (std::getline(lines, line) && line != head) {
    }
    std::getline(lines, line); // the rule below the head
    std::vector<Row> rows;
    while (std::getline(lines, line) && line.starts_with('|')) {
        rows.push_back(Cells(line));
    }
    return rows;
}

std::string Quoted(const char* name) {
    return std::string("`") + name + "`";
}

std::string Hexadecimal(std::uint32_t number) {
    std::ostringstream text;
    text << "`0x" << std::hex << std::uppercase << number << '`';
    return text.str();
}

// Codes that are given in bits are easier to tell in hexadecimal digits.
std::string CodeText(kxvcr::ExitCode code) {
    const auto number = static_cast<std::uint32_t>(code);
    const std::string decimal = std::to_string(number);
    return number < 0x10000 ? decimal : Hexadecimal(number) + " (" + decimal + ")";
}

TEST(WorkerProtocolPage, Results_AreTheHeadersTable) {
    std::vector<Row> expected;
    for (const kxvcr::ResultMeaning& row : kxvcr::kResults) {
        expected.push_back({std::to_string(static_cast<std::int32_t>(row.result)), Quoted(row.name), row.meaning});
    }
    EXPECT_EQ(Table("worker-protocol.md", "| result | name | meaning |"), expected);
}

TEST(WorkerProtocolPage, ExitCodes_AreTheHeadersTable) {
    std::vector<Row> expected;
    for (const kxvcr::ExitCodeMeaning& row : kxvcr::kExitCodes) {
        expected.push_back({CodeText(row.code), Quoted(row.name), row.meaning});
    }
    EXPECT_EQ(Table("worker-protocol.md", "| exit code | name | meaning |"), expected);
}

TEST(WorkerProtocolPage, Messages_HaveTheHeadersIds) {
    std::map<std::string, std::string> ids;
    for (const Row& row : Table("worker-protocol.md", "| message | id | from | payload | accepted |")) {
        ids[row.at(0)] = row.at(1);
    }
    const std::map<std::string, std::string> expected = {
        {"ready", Hexadecimal(kxvcr::kMessageReady)},
        {"prepare", Hexadecimal(kxvcr::kMessagePrepare)},
        {"start live server", Hexadecimal(kxvcr::kMessageStartLiveServer)},
        {"start local record", Hexadecimal(kxvcr::kMessageStartLocalRecord)},
        {"stop", Hexadecimal(kxvcr::kMessageStop)},
    };
    EXPECT_EQ(ids, expected);
}

TEST(WorkerProtocolPage, Modules_HaveTheHeadersIds) {
    EXPECT_THAT(kxtest::ReadFileBytes(kxtest::OwnFolder() / "docs" / "worker-protocol.md"),
                testing::HasSubstr("\nHost " + Hexadecimal(kxvcr::kHostModuleId) + ", worker " +
                                   Hexadecimal(kxvcr::kWorkerModuleId) + ". "));
}

// What a table of fields says at an offset about the field's values.
std::string ValuesAt(const std::vector<Row>& fields, std::size_t offset) {
    for (const Row& row : fields) {
        if (row.at(0) == std::to_string(offset)) {
            return row.at(2);
        }
    }
    return "(no such row)";
}

std::string Range(std::uint32_t most, std::uint32_t standard) {
    return "1 to " + std::to_string(most) + "; 0 is " + std::to_string(standard);
}

// Both records have a table with this head; the one behind a heading is meant.
std::vector<Row> Fields(const std::string& record) {
    std::istringstream lines(kxtest::ReadFileBytes(kxtest::OwnFolder() / "docs" / "worker-protocol.md"));
    std::string line;
    while (std::getline(lines, line) && line != "### " + record) {
    }
    std::vector<Row> rows;
    while (std::getline(lines, line) && !line.starts_with('#')) {
        if (line.starts_with('|')) {
            rows.push_back(Cells(line));
        }
    }
    return rows;
}

TEST(WorkerProtocolPage, PictureFields_HaveTheHeadersLimits) {
    using KxScreenRecord::ScreenRecordParam;
    const std::vector<Row> fields = Fields("ScreenRecordParam");
    EXPECT_THAT(ValuesAt(fields, offsetof(ScreenRecordParam, framesPerSecond)),
                StartsWith(Range(kxvcr::kMaxFramesPerSecond, kxvcr::kDefaultFramesPerSecond)));
    EXPECT_THAT(ValuesAt(fields, offsetof(ScreenRecordParam, quality)),
                StartsWith(Range(kxvcr::kMaxQuality, kxvcr::kDefaultQuality)));
    EXPECT_THAT(ValuesAt(fields, offsetof(ScreenRecordParam, window)), StartsWith("the low 32 bits of the handle"));
}

TEST(WorkerProtocolPage, LiveFields_HaveTheHeadersLimits) {
    using KxScreenRecord::LiveServerParam;
    const std::vector<Row> fields = Fields("LiveServerParam");
    EXPECT_THAT(ValuesAt(fields, offsetof(LiveServerParam, port)),
                StartsWith("1 to " + std::to_string(kxvcr::kMaxPort) + ";"));
    EXPECT_THAT(ValuesAt(fields, offsetof(LiveServerParam, maxClients)),
                StartsWith("1 to " + std::to_string(kxvcr::kMaxLiveClients) + " at the same time; 0 is " +
                           std::to_string(kxvcr::kDefaultLiveClients)));
}

TEST(HostsGuide, Codes_AreTheSystemsAndTheHeaders) {
    const auto text = [](auto code) { return std::to_string(static_cast<unsigned long>(code)); };
    std::vector<std::string> expected = {text(ERROR_BUSY), text(ERROR_INVALID_EXE_SIGNATURE), text(WAIT_TIMEOUT),
                                         "others"};
    for (const kxvcr::ExitCodeMeaning& row : kxvcr::kExitCodes) {
        expected.push_back(CodeText(row.code));
    }
    std::vector<std::string> codes;
    for (const Row& row : Table("hosts-guide.md", "| code | meaning | what to do |")) {
        codes.push_back(row.at(0));
    }
    EXPECT_THAT(codes, testing::UnorderedElementsAreArray(expected));
}

TEST(HostsGuide, WorkersExitCodes_MeanWhatTheHeaderSays) {
    std::map<std::string, std::string> meanings;
    for (const Row& row : Table("hosts-guide.md", "| code | meaning | what to do |")) {
        meanings[row.at(0)] = row.at(1);
    }
    for (const kxvcr::ExitCodeMeaning& row : kxvcr::kExitCodes) {
        if (row.code != kxvcr::ExitCode::Finished) { // 0 is every function's success
            EXPECT_EQ(meanings[CodeText(row.code)], row.meaning);
        }
    }
}

TEST(HostsGuide, RecordModes_AreTheHeaders) {
    using KxScreenRecord::RecordMode;
    std::vector<int> modes;
    for (const Row& row : Table("hosts-guide.md", "| step | call | record mode after it (`GetCurRecordMode`) |")) {
        if (!row.at(2).empty()) {
            modes.push_back(std::stoi(row.at(2)));
        }
    }
    const auto number = [](RecordMode mode) { return static_cast<int>(mode); };
    EXPECT_THAT(modes, testing::ElementsAre(number(RecordMode::NoWorker), number(RecordMode::WorkerStarted),
                                            number(RecordMode::Prepared), number(RecordMode::PreparedTimemachine),
                                            number(RecordMode::LocalRecord), number(RecordMode::LiveServer),
                                            number(RecordMode::NoWorker)));
}

} // namespace
