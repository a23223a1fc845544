// The secondary SKU out of a whole firmware table. The table is read once in a process, so each has a process of its
// own.
#include "systemenvironment.h"

#include "support/childprocess.h"
#include "support/importpatch.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::string Record(std::uint8_t type, std::string fields, const std::vector<std::string>& texts) {
    std::string record;
    record += static_cast<char>(type);
    record += static_cast<char>(fields.size() + 4);
    record += std::string(2, '\0');
    record += fields;
    for (const std::string& text : texts) {
        record += text + '\0';
    }
    return record + std::string(texts.empty() ? 2 : 1, '\0');
}

// System and enclosure record with one text each, their SKU numbers.
std::string FirmwareTable(const std::string& systemSku, const std::string& enclosureSku) {
    constexpr std::size_t kSystemFields = 0x1B - 4;
    constexpr std::size_t kSystemSku = 0x19 - 4;
    constexpr std::size_t kEnclosureFields = 0x16 - 4;
    constexpr std::size_t kEnclosureSku = 0x15 - 4;
    std::string system(kSystemFields, '\0');
    std::string enclosure(kEnclosureFields, '\0');
    if (!systemSku.empty()) {
        system[kSystemSku] = 1;
    }
    if (!enclosureSku.empty()) {
        enclosure[kEnclosureSku] = 1;
    }
    const auto texts = [](const std::string& sku) {
        return sku.empty() ? std::vector<std::string>() : std::vector<std::string>{sku};
    };
    const std::string records =
        Record(1, system, texts(systemSku)) + Record(3, enclosure, texts(enclosureSku)) + Record(127, "", {});
    const auto length = static_cast<std::uint32_t>(records.size());
    std::string header{"\0\3\2\0", 4};
    header.append(reinterpret_cast<const char*>(&length), sizeof(length));
    return header + records;
}

using FirmwareHook = kxtest::ImportHook<"KERNEL32.dll", "GetSystemFirmwareTable", decltype(GetSystemFirmwareTable)>;

void PrintSku(const std::string& systemSku, const std::string& enclosureSku) {
    const std::string table = FirmwareTable(systemSku, enclosureSku);
    const FirmwareHook hook(
        [&table](DWORD, DWORD, PVOID buffer, DWORD size) {
            if (buffer != nullptr && size >= table.size()) {
                std::memcpy(buffer, table.data(), table.size());
            }
            return static_cast<UINT>(table.size());
        },
        GetModuleHandleW(L"Util.dll"));
    std::printf("[%s]", SystemEnvironment::GetSecondarySku().c_str());
    std::fflush(stdout);
}

const kxtest::ChildScenario kSkusDiffer("skus-differ", [] { PrintSku("ABC", "XYZ-9"); });
const kxtest::ChildScenario kSkusEqual("skus-equal", [] { PrintSku("XYZ-9", "XYZ-9"); });
const kxtest::ChildScenario kSkusDifferInCase("skus-differ-in-case", [] { PrintSku("xyz-9", "XYZ-9"); });
const kxtest::ChildScenario kNoSystemSku("no-system-sku", [] { PrintSku("", "XYZ-9"); });
const kxtest::ChildScenario kNoSecondarySku("no-secondary-sku", [] { PrintSku("ABC", ""); });

TEST(SecondarySkuIntegration, FirmwareTable_DecidesTheSku) {
    EXPECT_EQ(kxtest::RunChild("skus-differ").output, "[xyz-9]");
    EXPECT_EQ(kxtest::RunChild("skus-equal").output, "[]");
    EXPECT_EQ(kxtest::RunChild("skus-differ-in-case").output, "[xyz-9]");
    EXPECT_EQ(kxtest::RunChild("no-system-sku").output, "[xyz-9]");
    EXPECT_EQ(kxtest::RunChild("no-secondary-sku").output, "[]");
}

} // namespace
