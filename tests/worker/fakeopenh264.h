/**
 * @file
 * How the tests tell the scriptable openh264.dll what to do.
 */
#pragma once

namespace kxvcr::test {

/** The behaviour of the fake library, one for the whole process. */
struct FakeH264Script {
    unsigned int major = 2;
    unsigned int minor = 3;
    int createResult = 0;     ///< of WelsCreateSVCEncoder
    int initialiseResult = 0; ///< of every InitializeExt
    int parameterSetsResult = 0;
    int failingPicture = -1; ///< counted from 0 over all encoders; it and none other fails
    int failure = 4;         ///< how it fails
    bool leavesOut = false;  ///< whether it succeeds without any bytes instead
    // What was done to it.
    int initialised = 0;
    int pictures = 0;
    int forced = 0; ///< key pictures asked for
    int destroyed = 0;
};

using FakeH264ScriptFunction = FakeH264Script*();
inline constexpr char kFakeH264ScriptName[] = "FakeH264GetScript";

} // namespace kxvcr::test
