// A scriptable openh264.dll: the four functions that the worker calls, and an encoder that fails on demand.
#include "tests/worker/fakeopenh264.h"

#include <wels/codec_api.h>

#include <array>

namespace {

using kxvcr::test::FakeH264Script;

FakeH264Script g_script;

constexpr int kFailed = 1;

class FakeEncoder final : public ISVCEncoder {
public:
    int EXTAPI Initialize(const SEncParamBase*) override { return kFailed; }
    int EXTAPI InitializeExt(const SEncParamExt*) override {
        ++g_script.initialised;
        return g_script.initialiseResult;
    }
    int EXTAPI GetDefaultParams(SEncParamExt* parameters) override {
        *parameters = {};
        return cmResultSuccess;
    }
    int EXTAPI Uninitialize() override { return cmResultSuccess; }
    int EXTAPI EncodeFrame(const SSourcePicture*, SFrameBSInfo* coded) override {
        const bool fails = g_script.pictures++ == g_script.failingPicture;
        if (fails && !g_script.leavesOut) {
            return g_script.failure;
        }
        if (!fails && m_isKeyNext) {
            Give(m_key, *coded);
        } else if (!fails) {
            Give(m_other, *coded);
        }
        m_isKeyNext = false;
        return cmResultSuccess;
    }
    int EXTAPI EncodeParameterSets(SFrameBSInfo* coded) override {
        Give(m_sets, *coded);
        coded->sLayerInfo[0].iNalCount = 2;
        coded->sLayerInfo[0].pNalLengthInByte = m_setLengths.data();
        return g_script.parameterSetsResult;
    }
    int EXTAPI ForceIntraFrame(bool, int) override {
        ++g_script.forced;
        m_isKeyNext = true;
        return cmResultSuccess;
    }
    int EXTAPI SetOption(ENCODER_OPTION, void*) override { return cmResultSuccess; }
    int EXTAPI GetOption(ENCODER_OPTION, void*) override { return kFailed; }

private:
    template <class Bytes>
    void Give(Bytes& bytes, SFrameBSInfo& coded) {
        m_length = static_cast<int>(bytes.size());
        coded.iLayerNum = 1;
        coded.sLayerInfo[0].iNalCount = 1;
        coded.sLayerInfo[0].pBsBuf = bytes.data();
        coded.sLayerInfo[0].pNalLengthInByte = &m_length;
        coded.iFrameSizeInBytes = m_length;
    }

    std::array<unsigned char, 7> m_key = {0, 0, 0, 1, 0x65, 0xAA, 0xBB};
    std::array<unsigned char, 6> m_other = {0, 0, 0, 1, 0x41, 0xCC};
    std::array<unsigned char, 14> m_sets = {0, 0, 0, 1, 0x67, 100, 0, 31, 0xDD, 0, 0, 1, 0x68, 0xEE};
    std::array<int, 2> m_setLengths = {9, 5};
    int m_length = 0;
    bool m_isKeyNext = true;
};

} // namespace

extern "C" {

__declspec(dllexport) int WelsCreateSVCEncoder(ISVCEncoder** encoder) {
    *encoder = g_script.createResult == 0 ? new FakeEncoder : nullptr;
    return g_script.createResult;
}

__declspec(dllexport) void WelsDestroySVCEncoder(ISVCEncoder* encoder) {
    ++g_script.destroyed;
    delete encoder;
}

__declspec(dllexport) void WelsGetCodecVersionEx(OpenH264Version* version) {
    *version = {g_script.major, g_script.minor, 0, 0};
}

__declspec(dllexport) FakeH264Script* FakeH264GetScript() {
    return &g_script;
}
}
