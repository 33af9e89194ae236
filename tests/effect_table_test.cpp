// The effect table's rows and the differences between its lookups.
#include "effects/effect_table.h"

#include <gtest/gtest.h>

#include "effects/box_blur_effect.h"
#include "effects/geometry_effects.h"
#include "effects/neighbourhood_effects.h"
#include "effects/tone_effects.h"

namespace kolm {
namespace {

constexpr EffectEntry kRows[] = {
    {1, 1, 0, 10, 2, 0, ZoomIn},           {2, 1, 0, 10, 2, 0, ZoomOut},
    {3, 1, 0, 0, 0, 0, Grayscale},         {4, 0, 0, 0, 0, 0, Sepia},
    {5, 1, 0, 8, 2, 0, BoxBlur},           {6, 1, 0, 8, 3, 0, Pixelate},
    {7, 0, 0, 0, 0, 0, EmbossGrey},        {8, 0, 0, 0, 0, 0, EmbossColour},
    {9, 1, 1, 8, 3, 0, PictureGrid},       {10, 0, 0, 0, 0, 0, EdgeReliefGrey},
    {11, 0, 0, 0, 0, 0, EdgeReliefColour}, {12, 0, 0, 0, 0, 0, Sketch},
    {13, 0, 0, 0, 0, 0, Negative},         {14, 1, 0, 10, 4, 0, Posterize},
    {15, 0, 0, 0, 0, 0, HorizontalBulge},  {16, 0, 0, 0, 0, 0, HorizontalPinch},
    {17, 0, 0, 0, 0, 0, VerticalBulge},    {18, 0, 0, 0, 0, 0, VerticalPinch},
};

TEST(EffectTable, HoldsEighteenRowsInOrder) {
  ASSERT_EQ(EffectTableCount, 18);
  for (int32_t i = 0; i < 18; ++i) {
    SCOPED_TRACE(testing::Message() << "row " << i);
    EXPECT_EQ(EffectTable[i].id, kRows[i].id);
    EXPECT_EQ(EffectTable[i].hasParameter, kRows[i].hasParameter);
    EXPECT_EQ(EffectTable[i].minimum, kRows[i].minimum);
    EXPECT_EQ(EffectTable[i].maximum, kRows[i].maximum);
    EXPECT_EQ(EffectTable[i].defaultValue, kRows[i].defaultValue);
    EXPECT_EQ(EffectTable[i].reserved, 0u);
    EXPECT_EQ(EffectTable[i].routine, kRows[i].routine);
  }
}

TEST(EffectTable, LookupsGiveTheRow) {
  for (const EffectEntry& row : kRows) {
    SCOPED_TRACE(testing::Message() << "id " << row.id);
    EXPECT_EQ(FindEffectRoutine(row.id), row.routine);
    uint32_t minimum = 77, maximum = 78, defaultValue = 79;
    FindParameterRange(row.id, &minimum, &maximum);
    FindParameterDefault(row.id, &defaultValue);
    EXPECT_EQ(minimum, row.minimum);
    EXPECT_EQ(maximum, row.maximum);
    EXPECT_EQ(defaultValue, row.defaultValue);
  }
}

TEST(EffectTable, UnknownIdKeepsTheRangeAndClearsTheDefault) {
  for (const uint32_t id : {0u, 19u, 0x80000001u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(testing::Message() << "id " << id);
    EXPECT_EQ(FindEffectRoutine(id), nullptr);
    uint32_t minimum = 77, maximum = 78, defaultValue = 79;
    FindParameterRange(id, &minimum, &maximum);
    FindParameterDefault(id, &defaultValue);
    EXPECT_EQ(minimum, 77u);
    EXPECT_EQ(maximum, 78u);
    EXPECT_EQ(defaultValue, 0u);
  }
}

}  // namespace
}  // namespace kolm
