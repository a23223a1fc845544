// The SMBIOS parser on made-up tables, good and damaged, and the real Util.dll on the machine's own table.
#include "sdk/util/smbios.h"

#include "../../suite/util/smbiostable.h"
#include "firmwaretable.h"
#include "support/childprocess.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <vector>

namespace {

using firmwaretest::Append;
using firmwaretest::Bytes;
using firmwaretest::Structure;
using firmwaretest::Table;

/** Fields of a system record of version 2.4: manufacturer, product, version, serial, UUID, wake-up, SKU, family. */
Bytes SystemFields(std::uint8_t version, std::uint8_t sku) {
    Bytes fields{1, 2, version, 3};
    Append(fields, Bytes(16 + 1, 0xEE));
    fields.push_back(sku);
    fields.push_back(0);
    return fields;
}

/** Fields of an enclosure record of version 2.7 with a list of contained elements before the SKU. */
Bytes EnclosureFields(std::uint8_t elementCount, std::uint8_t elementLength, std::uint8_t sku) {
    Bytes fields(0x13 - 4, 0);
    fields.push_back(elementCount);
    fields.push_back(elementLength);
    Append(fields, Bytes(size_t{elementCount} * elementLength, 0xEE));
    fields.push_back(sku);
    return fields;
}

const Bytes kEnd = Structure(127, {}, {});
const std::vector<std::string> kSystemStrings{"Maker", "Book 14", "SN1", "V2.10", "SKU_C14"};

Bytes SystemStructure() {
    return Structure(1, SystemFields(4, 5), kSystemStrings);
}

/** Every text of a table, one to a line. */
std::string TextsOf(const Bytes& block) {
    const kxutil::SmBiosTable table(block);
    return table.SystemVersion() + "\n" + table.SystemSku() + "\n" + table.ChassisSku() + "\n" + table.FirstOemString();
}

TEST(SmBiosTable, LaptopOfVersion3_HasEveryText) {
    const Bytes block = Table(3, 3,
                              {Structure(0, Bytes(20, 1), {"Firmware", "1.0"}), SystemStructure(),
                               Structure(3, EnclosureFields(0, 0, 2), {"Maker", "CHASSIS"}),
                               Structure(11, {2}, {"$ORV123AB", "second"}), kEnd});
    EXPECT_EQ(TextsOf(block), "V2.10\nSKU_C14\nCHASSIS\n$ORV123AB");
}

TEST(SmBiosTable, ServerEnclosureWithContainedElements_HasItsSkuBehindThem) {
    const Bytes block = Table(3, 2, {Structure(3, EnclosureFields(5, 3, 1), {"RACK"}), kEnd});
    EXPECT_EQ(TextsOf(block), "\n\nRACK\n");
}

TEST(SmBiosTable, ServerWithTwoEnclosures_AnswersFromTheFirst) {
    const Bytes block = Table(3, 2,
                              {Structure(3, EnclosureFields(0, 0, 1), {"MAIN"}),
                               Structure(3, EnclosureFields(0, 0, 1), {"EXPANSION"}), kEnd});
    EXPECT_EQ(TextsOf(block), "\n\nMAIN\n");
}

TEST(SmBiosTable, TableOfVersion20_HasNoSkus) {
    const Bytes block = Table(2, 0,
                              {Structure(1, {1, 2, 3, 4}, {"Maker", "Product", "V1", "SN"}),
                               Structure(3, {1, 9, 2, 3, 4}, {"Maker", "1", "2", "3"}), kEnd});
    EXPECT_EQ(TextsOf(block), "V1\n\n\n");
}

TEST(SmBiosTable, TableWithoutEndStructure_IsReadToItsEnd) {
    EXPECT_EQ(TextsOf(Table(2, 8, {Structure(11, {1}, {"oem"}), SystemStructure()})), "V2.10\nSKU_C14\n\noem");
}

TEST(SmBiosTable, StructuresBehindTheEnd_AreNotRead) {
    EXPECT_EQ(TextsOf(Table(3, 0, {kEnd, SystemStructure()})), "\n\n\n");
}

TEST(SmBiosTable, StructureWithoutStrings_HasEmptyTextsAndTheNextOneIsFound) {
    const Bytes block = Table(3, 0, {Structure(1, SystemFields(0, 0), {}), Structure(11, {1}, {"oem"}), kEnd});
    EXPECT_EQ(TextsOf(block), "\n\n\noem");
}

TEST(SmBiosTable, StructureOfItsHeaderAlone_IsSteppedOver) {
    const Bytes block = Table(3, 0, {Structure(126, {}, {}), SystemStructure(), kEnd});
    EXPECT_EQ(TextsOf(block), "V2.10\nSKU_C14\n\n");
}

TEST(SmBiosTable, RecordThatEndsJustBeforeAField_HasNoSuchText) {
    Bytes fields = SystemFields(3, 1);
    fields.resize(0x19 - 4);
    // The byte behind the record would name the second string.
    const Bytes block = Table(2, 3, {Structure(1, fields, {"\x02", "stray", "V1"}), kEnd});
    EXPECT_EQ(TextsOf(block), "V1\n\n\n");
}

TEST(SmBiosTable, NumberOfAStringThatIsNotThere_IsAnEmptyText) {
    EXPECT_EQ(TextsOf(Table(3, 0, {Structure(1, SystemFields(6, 255), kSystemStrings), kEnd})), "\n\n\n");
    EXPECT_EQ(TextsOf(Table(3, 0, {Structure(1, SystemFields(1, 1), {}), kEnd})), "\n\n\n");
}

TEST(SmBiosTable, OemRecordThatCountsNoStrings_HasNone) {
    EXPECT_EQ(TextsOf(Table(3, 0, {Structure(11, {0}, {"stray"}), kEnd})), "\n\n\n");
    EXPECT_EQ(TextsOf(Table(3, 0, {Structure(11, {}, {"stray"}), kEnd})), "\n\n\n");
}

TEST(SmBiosTable, BytesOutsideAscii_AreKept) {
    EXPECT_EQ(TextsOf(Table(3, 0, {Structure(11, {1}, {"\xE9\xFF "}), kEnd})), "\n\n\n\xE9\xFF ");
}

TEST(SmBiosTable, TableCutAnywhere_GivesNoTextThatIsNotInIt) {
    const Bytes whole = Table(3, 3,
                              {Structure(11, {1}, {"$ORV123AB"}), SystemStructure(),
                               Structure(3, EnclosureFields(0, 0, 1), {"CHASSIS"}), kEnd});
    for (size_t size = 0; size <= whole.size(); ++size) {
        const kxutil::SmBiosTable table({whole.data(), size});
        const std::string oem = table.FirstOemString();
        const std::string version = table.SystemVersion();
        const std::string chassis = table.ChassisSku();
        EXPECT_TRUE(oem.empty() || oem == "$ORV123AB") << size;
        EXPECT_TRUE(version.empty() || version == "V2.10") << size;
        EXPECT_TRUE(chassis.empty() || chassis == "CHASSIS") << size;
    }
    EXPECT_EQ(TextsOf(whole), "V2.10\nSKU_C14\nCHASSIS\n$ORV123AB");
}

TEST(SmBiosTable, LengthOfTheBlockBeyondItsBytes_IsTheBytes) {
    Bytes block = Table(3, 3, {SystemStructure(), kEnd});
    block[4] = block[5] = block[6] = block[7] = 0xFF;
    EXPECT_EQ(TextsOf(block), "V2.10\nSKU_C14\n\n");
}

TEST(SmBiosTable, LengthOfTheBlockShorterThanItsBytes_EndsTheTable) {
    Bytes block = Table(3, 3, {SystemStructure(), kEnd});
    block[4] = 10;
    EXPECT_EQ(TextsOf(block), "\n\n\n");
}

TEST(SmBiosTable, StructureLongerThanTheTable_EndsIt) {
    const Bytes block = Table(3, 3, {Structure(11, {1}, {"oem"}), Structure(1, SystemFields(4, 5), {}, 255)});
    EXPECT_EQ(TextsOf(block), "\n\n\noem");
}

TEST(SmBiosTable, StructureShorterThanItsHeader_EndsTheTableInsteadOfLooping) {
    for (const int length : {0, 1, 2, 3}) {
        const Bytes block = Table(3, 3, {Structure(2, {}, {}, length), SystemStructure(), kEnd});
        EXPECT_EQ(TextsOf(block), "\n\n\n") << length;
    }
}

TEST(SmBiosTable, ContainedElementsBeyondTheRecord_GiveNoSku) {
    Bytes fields = EnclosureFields(0, 0, 1);
    fields[0x13 - 4] = 255;
    fields[0x14 - 4] = 255;
    EXPECT_EQ(TextsOf(Table(3, 3, {Structure(3, fields, {"CHASSIS"}), kEnd})), "\n\n\n");
}

TEST(SmBiosTable, NothingOrOnlyZeros_HasNoTexts) {
    EXPECT_EQ(TextsOf({}), "\n\n\n");
    EXPECT_EQ(TextsOf(Bytes(7, 0)), "\n\n\n");
    EXPECT_EQ(TextsOf(Bytes(100'000, 0)), "\n\n\n");
    EXPECT_EQ(TextsOf(Bytes(100'000, 0xFF)), "\n\n\n");
}

TEST(UtilSmBios, TextsOfTheMachine_AreThoseOfItsTable) {
    constexpr DWORD kProvider = 0x52534D42;
    Bytes block(GetSystemFirmwareTable(kProvider, 0, nullptr, 0));
    block.resize(GetSystemFirmwareTable(kProvider, 0, block.data(), static_cast<DWORD>(block.size())));
    const kxutil::SmBiosTable table(block);
    const SmBiosHelper& helper = *SmBiosHelper::GetInstance();
    const auto widen = [](const std::string& text) { return std::wstring(text.begin(), text.end()); };
    EXPECT_GT(block.size(), 8u);
    EXPECT_EQ(helper.GetSysSKU(), widen(table.SystemSku()));
    EXPECT_EQ(helper.GetSecSKU(), widen(table.ChassisSku()));
    EXPECT_EQ(helper.GetOemString1(), widen(table.FirstOemString()));
    EXPECT_EQ(helper.GetBIOSSysVersion(), widen(table.SystemVersion()));
}

using TableHook = kxtest::ImportHook<"KERNEL32.dll", "GetSystemFirmwareTable", decltype(GetSystemFirmwareTable)>;

// The table is kept once it has been read, so that this needs a process of its own.
const kxtest::ChildScenario kTableFailsOnce("tablefailsonce", [] {
    {
        const TableHook hook([](auto...) -> UINT { return 0; }, GetModuleHandleW(L"Util.dll"));
        std::printf("[%ls]", SmBiosHelper::GetInstance()->GetSysSKU().c_str());
    }
    const firmwaretest::MachineTable table(Table(3, 2, {SystemStructure(), kEnd}));
    std::printf("[%ls]", SmBiosHelper::GetInstance()->GetSysSKU().c_str());
});

TEST(SmBiosHelper, TableThatCannotBeReadOnce_IsReadByTheNextQuery) {
    EXPECT_EQ(kxtest::RunChild("tablefailsonce").output, "[][SKU_C14]");
}

} // namespace
