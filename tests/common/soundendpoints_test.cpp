// Which sound device a text means.
#include "common/win/soundendpoints.h"

#include <gtest/gtest.h>

namespace {

using kx::FindSoundEndpoint;

const std::vector<kx::SoundEndpoint> kEndpoints = {
    {L"{0.0.0.00000000}.{AA}", L"Speakers (USB)", false, true},
    {L"{0.0.1.00000000}.{BB}", L"Headset (USB)", true, true},
    {L"{0.0.1.00000000}.{CC}", L"Headset", true, false},
};

std::wstring IdOf(std::wstring_view wanted) {
    const auto found = FindSoundEndpoint(kEndpoints, wanted);
    return found ? found->id : L"";
}

TEST(SoundEndpoints, Id_IsFoundWithoutRegardToCase) {
    EXPECT_EQ(IdOf(L"{0.0.1.00000000}.{bb}"), L"{0.0.1.00000000}.{BB}");
}

TEST(SoundEndpoints, Name_IsFoundBeforeANameThatHasItAsAPart) {
    EXPECT_EQ(IdOf(L"headset"), L"{0.0.1.00000000}.{CC}");
}

TEST(SoundEndpoints, PartOfOneName_IsFound) {
    EXPECT_EQ(IdOf(L"speak"), L"{0.0.0.00000000}.{AA}");
}

TEST(SoundEndpoints, PartOfSeveralNames_IsNotFound) {
    EXPECT_EQ(IdOf(L"usb"), L"");
}

TEST(SoundEndpoints, OtherText_IsNotFound) {
    EXPECT_EQ(IdOf(L"microphone"), L"");
}

} // namespace
