// The first question for the device's identifier, whose answer the process keeps, without memory.
#include "systemenvironment.h"

#include "memorymachine.h"
#include "memorymatrix.h"
#include "support/childprocess.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <string>

namespace integrationtest {

namespace {

using kxtest::Failing;

/** Asks with failing allocations until the number is known; prints what is neither the number nor the default. */
void AskForTheDeviceId(Failing (*failing)(std::size_t)) {
    // Each failed call uses the default that is kept ready. The next call first asks for memory for another.
    constexpr std::size_t kAllocationsOfADefault = 2;
    Machine machine;
    machine.Arrange();
    const memorymatrix::Registry before = memorymatrix::ReadRegistry();
    memorymatrix::FixedLines lines;
    kxtest::MemoryFault memory({"ScreenRecordProxy.dll", "Util.dll"});
    bool isKnown = false;
    for (std::size_t nth = 1; !isKnown; nth += nth == 1 ? kAllocationsOfADefault : 1) {
        bool isDefault = false;
        memory.Run(failing(nth), [&] {
            const std::string id = SystemEnvironment::GetDeviceId();
            isKnown = id == kSerialNumber;
            isDefault = id == kDefaultDeviceId;
        });
        if (!isKnown && !isDefault) {
            std::printf("allocation %zu: another answer\n", nth);
            return;
        }
    }
    std::printf("%s", memorymatrix::ReadRegistry() == before ? "the number" : "the registry has changed");
}

const kxtest::ChildScenario kRecordedOnce("recorded-once", [] { AskForTheDeviceId(&Failing::Once); });
const kxtest::ChildScenario kRecordedFrom("recorded-from", [] { AskForTheDeviceId(&Failing::From); });

TEST(DeviceIdWithoutMemory, RecordedNumber_DefaultUntilThereIsMemory) {
    for (const char* const scenario : {"recorded-once", "recorded-from"}) {
        const kxtest::ChildResult result = kxtest::RunChild(scenario);
        EXPECT_EQ(result.exitCode, 0u) << scenario;
        EXPECT_EQ(result.output, "the number") << scenario;
    }
}

} // namespace

} // namespace integrationtest
