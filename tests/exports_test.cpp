// The exports: their debugger lines, letter by letter, their results and what they pass on.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "effects/tone_effects.h"
#include "module/entry.h"
#include "module/kolm.h"
#include "platform/host/host_kernel.h"

namespace {

using Lines = std::vector<std::string>;

constexpr int32_t kObjectPathNotFound = static_cast<int32_t>(0xC000003A);

class Exports : public testing::Test {
 protected:
  void SetUp() override {
    kolm::host::SetDebugSink([this](const std::string& text) { lines.push_back(text); });
  }
  void TearDown() override { kolm::host::SetDebugSink(nullptr); }

  Lines lines;
};

TEST_F(Exports, DllInitializePrintsTheServiceKey) {
  const char16_t key[] = u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\Kolm";
  const CountedString serviceKey = {sizeof key - 2, sizeof key, key};
  EXPECT_EQ(DllInitialize(&serviceKey), 0);
  EXPECT_EQ(lines,
            Lines({"Kolm: DllInitialize(\\Registry\\Machine\\System\\CurrentControlSet\\Services"
                   "\\Kolm)\n"}));
  EXPECT_EQ(kolm::host::DescribePoolBlocks(), "");
}

TEST_F(Exports, DllUnloadPrintsItsLineWithoutAnyCallBefore) {
  EXPECT_EQ(DllUnload(), 0);
  EXPECT_EQ(lines, Lines({"Kolm: DllUnload\n"}));
}

TEST_F(Exports, InitVideoEffectStoresTheRoutine) {
  EffectRoutine routine = nullptr;
  EXPECT_EQ(Kolm_VE_InitVideoEffect(13, &routine), 0);
  EXPECT_EQ(routine, kolm::Negative);
  EXPECT_EQ(lines, Lines({"Kolm: Kolm_VE_InitVideoEffect\n"}));
  for (uint32_t id = KOLM_EFFECT_FIRST; id <= KOLM_EFFECT_LAST; ++id) {
    routine = nullptr;
    EXPECT_EQ(Kolm_VE_InitVideoEffect(id, &routine), 0);
    EXPECT_NE(routine, nullptr) << id;
  }
}

TEST_F(Exports, InitVideoEffectStoresNullForAnUnknownId) {
  for (const uint32_t id : {0u, 19u, 0xFFFFFFFFu}) {
    EffectRoutine routine = kolm::Negative;
    EXPECT_EQ(Kolm_VE_InitVideoEffect(id, &routine), 0);
    EXPECT_EQ(routine, nullptr);
  }
}

TEST_F(Exports, GetParameterRangeStoresBothEnds) {
  uint32_t minimum = 77, maximum = 78;
  EXPECT_EQ(Kolm_VE_GetParameterRange(9, &minimum, &maximum), 0);
  EXPECT_EQ(minimum, 1u);
  EXPECT_EQ(maximum, 8u);
  EXPECT_EQ(lines, Lines({"Kolm: Kolm_VE_GetParameterRange\n"}));
}

TEST_F(Exports, GetParameterRangeAnswersForEffectsWithoutParameter) {
  for (const uint32_t id : {3u, 4u}) {
    uint32_t minimum = 77, maximum = 78;
    EXPECT_EQ(Kolm_VE_GetParameterRange(id, &minimum, &maximum), 0);
    EXPECT_EQ(minimum, 0u);
    EXPECT_EQ(maximum, 0u);
  }
}

TEST_F(Exports, GetParameterRangeKeepsTheOutputsForAnUnknownId) {
  for (const uint32_t id : {0u, 19u}) {
    uint32_t minimum = 77, maximum = 78;
    EXPECT_EQ(Kolm_VE_GetParameterRange(id, &minimum, &maximum), 0);
    EXPECT_EQ(minimum, 77u);
    EXPECT_EQ(maximum, 78u);
  }
}

TEST_F(Exports, GetParameterDefaultStoresIt) {
  uint32_t defaultValue = 77;
  EXPECT_EQ(Kolm_VE_GetParameterDefault(9, &defaultValue), 0);
  EXPECT_EQ(defaultValue, 3u);
  EXPECT_EQ(lines, Lines({"Kolm: Kolm_VE_GetParameterDefault\n"}));
}

TEST_F(Exports, GetParameterDefaultStoresZeroForAnUnknownId) {
  for (const uint32_t id : {0u, 19u}) {
    uint32_t defaultValue = 77;
    EXPECT_EQ(Kolm_VE_GetParameterDefault(id, &defaultValue), 0);
    EXPECT_EQ(defaultValue, 0u);
  }
}

// What a client's own routine was called with, and the lines printed by then.
struct Call {
  const uint8_t* source;
  uint8_t* destination;
  uint32_t width, height, parameter;
  size_t linesBefore;
};
std::vector<Call> calls;
const Lines* linesSoFar;

void ClientRoutine(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                   uint32_t parameter) {
  calls.push_back({source, destination, width, height, parameter, linesSoFar->size()});
}

TEST_F(Exports, RunVideoEffectPrintsTheLowHalfOfTheRoutineThenCallsIt) {
  calls.clear();
  linesSoFar = &lines;
  const uint8_t source[4] = {};
  uint8_t destination[4] = {};
  EXPECT_EQ(Kolm_VE_RunVideoEffect(ClientRoutine, source, destination, 2, 1, 0xFFFFFFFF), 0);

  char expected[64];
  std::snprintf(expected, sizeof expected, "Kolm: Kolm_VE_RunVideoEffect, %x\n",
                static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&ClientRoutine)));
  EXPECT_EQ(lines, Lines({expected}));
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].source, source);
  EXPECT_EQ(calls[0].destination, destination);
  EXPECT_EQ(calls[0].width, 2u);
  EXPECT_EQ(calls[0].height, 1u);
  EXPECT_EQ(calls[0].parameter, 0xFFFFFFFFu);
  EXPECT_EQ(calls[0].linesBefore, 1u);
}

TEST(ExportsDeathTest, RunVideoEffectPrintsANullRoutineBeforeItFaults) {
  const uint8_t source[4] = {};
  uint8_t destination[4] = {};
  EXPECT_DEATH(Kolm_VE_RunVideoEffect(nullptr, source, destination, 2, 1, 0),
               "Kolm: Kolm_VE_RunVideoEffect, 0\n");
}

TEST_F(Exports, UninitVideoEffectOnlyPrints) {
  EXPECT_EQ(Kolm_VE_UninitVideoEffect(), 0);
  EXPECT_EQ(lines, Lines({"Kolm: Kolm_VE_UninitVideoEffect\n"}));
}

TEST_F(Exports, LoadBackgroundPrintsItsLineBeforeItOpens) {
  std::vector<uint8_t> record(sizeof(BackgroundRecord), 0xA5);
  const std::vector<uint8_t> before = record;
  unsetenv("KOLM_SYSTEM_ROOT");
  EXPECT_EQ(Kolm_BG_LoadBackground(1, record.data()), kObjectPathNotFound);
  EXPECT_EQ(lines, Lines({"Kolm: Kolm_BG_LoadBackground\n", "FileOpen : Error"}));
  EXPECT_EQ(record, before);
}

TEST_F(Exports, LoadFromFilePrintsWhatANarrowReadOfThePathShows) {
  std::vector<uint8_t> record(sizeof(BackgroundRecord), 0xA5);
  const std::vector<uint8_t> before = record;
  unsetenv("KOLM_SYSTEM_ROOT");
  EXPECT_EQ(Kolm_BG_LoadFromFile(u"\\SystemRoot\\x", record.data()), kObjectPathNotFound);
  // The second byte of the first character ends it; two bytes that are both set are both shown.
  const KolmPathCharacter wide[] = {0x6261, 0x63, 0};
  EXPECT_LT(Kolm_BG_LoadFromFile(wide, record.data()), 0);
  EXPECT_EQ(lines, Lines({"Kolm: Kolm_BG_LoadFromFile, \\\n", "FileOpen : Error",
                          "Kolm: Kolm_BG_LoadFromFile, abc\n", "FileOpen : Error"}));
  EXPECT_EQ(record, before);
}

TEST_F(Exports, ScaleBackgroundPrintsItsLine) {
  const std::vector<uint8_t> record(sizeof(BackgroundRecord));
  std::vector<uint8_t> destination(16 * 12 * 3);
  EXPECT_EQ(Kolm_BG_ScaleBackground(record.data(), destination.data(), 16, 12), 0);
  EXPECT_EQ(lines, Lines({"Kolm: Kolm_BG_ScaleBackground\n"}));
}

TEST_F(Exports, AlphaBlendingPrintsItsLineInItsOwnSpelling) {
  const std::vector<uint8_t> background(16 * 12 * 3), live(16 * 12 * 2);
  std::vector<uint8_t> output(16 * 12 * 2);
  EXPECT_EQ(Kolm_BG_AlphaBlending(16, 12, background.data(), live.data(), output.data()), 0);
  EXPECT_EQ(lines, Lines({"Kolm: Kolm_BG_AlphaBlenging\n"}));
}

TEST_F(Exports, InitAndUninitFaceTrackingPrintTheirLines) {
  void* storage = nullptr;
  void* image = nullptr;
  EXPECT_EQ(Kolm_FT_InitFaceTracking(160, 120, &storage, &image), 0);
  EXPECT_NE(storage, nullptr);
  EXPECT_NE(image, nullptr);
  EXPECT_EQ(lines, Lines({"Kolm: Kolm_FT_InitFaceTracking\n"}));
  EXPECT_EQ(Kolm_FT_UninitFaceTracking(&storage, &image), 0);
  EXPECT_EQ(storage, nullptr);
  EXPECT_EQ(image, nullptr);
  EXPECT_EQ(lines, Lines({"Kolm: Kolm_FT_InitFaceTracking\n",  //
                          "Kolm: Kolm_FT_UninitFaceTracking\n"}));
}

TEST_F(Exports, DoFaceTrackingPrintsItsFirstArgumentSigned) {
  FaceTracker tracker = {};
  EXPECT_EQ(Kolm_FT_DoFaceTracking(7, &tracker), 0);
  EXPECT_EQ(Kolm_FT_DoFaceTracking(0xFFFFFFFF, &tracker), 0);
  EXPECT_EQ(lines, Lines({"Kolm: Kolm_FT_DoFaceTracking, 7\n",  //
                          "Kolm: Kolm_FT_DoFaceTracking, -1\n"}));
}

}  // namespace
