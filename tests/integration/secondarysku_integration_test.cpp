// The secondary SKU out of a whole firmware table. The table is read once in a process, so each has a process of its
// own.
#include "systemenvironment.h"

#include "firmwaretable.h"
#include "support/childprocess.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using firmwaretest::Bytes;
using firmwaretest::Structure;

// System and enclosure record with one text each, their SKU numbers.
Bytes FirmwareTable(const std::string& systemSku, const std::string& enclosureSku) {
    constexpr std::size_t kSystemFields = 0x1B - 4;
    constexpr std::size_t kSystemSku = 0x19 - 4;
    constexpr std::size_t kEnclosureFields = 0x16 - 4;
    constexpr std::size_t kEnclosureSku = 0x15 - 4;
    Bytes system(kSystemFields);
    Bytes enclosure(kEnclosureFields);
    if (!systemSku.empty()) {
        system[kSystemSku] = 1;
    }
    if (!enclosureSku.empty()) {
        enclosure[kEnclosureSku] = 1;
    }
    const auto texts = [](const std::string& sku) {
        return sku.empty() ? std::vector<std::string>() : std::vector<std::string>{sku};
    };
    return firmwaretest::Table(
        3, 2,
        {Structure(1, system, texts(systemSku)), Structure(3, enclosure, texts(enclosureSku)), Structure(127, {}, {})});
}

void PrintSku(const std::string& systemSku, const std::string& enclosureSku) {
    const firmwaretest::MachineTable machine(FirmwareTable(systemSku, enclosureSku));
    std::printf("[%s]", SystemEnvironment::GetSecondarySku().c_str());
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
