// Box blur by running sums: its cost does not depend on the radius.
#include "effects/box_blur_effect.h"

#include "effects/frame.h"

namespace kolm {
namespace {

uint32_t Smaller(uint32_t a, uint32_t b) { return a < b ? a : b; }

// Adds a source row to the column sums of `pairs` pixel pairs, or takes it away.
template <bool add>
void CountRow(const uint8_t* row, uint32_t pairs, uint32_t* sumY, uint32_t* sumU, uint32_t* sumV) {
  const auto count = [](uint32_t& sum, uint32_t value) { sum = add ? sum + value : sum - value; };
  for (uint32_t k = 0; k < pairs; ++k) {
    const uint8_t* pair = row + size_t{k} * 4;
    for (uint32_t x = 2 * k; x <= 2 * k + 1; ++x) {
      count(sumY[x], pair[(x & 1) * 2]);
      count(sumU[x], pair[1]);
      count(sumV[x], pair[3]);
    }
  }
}

// One row of window means from column sums over `rows` rows. The sums are 64-bit, so that no frame
// is too large for its window.
void MeanRow(const uint32_t* sumY, const uint32_t* sumU, const uint32_t* sumV, uint32_t* meanU,
             uint32_t* meanV, uint8_t* destination, uint32_t width, uint32_t radius,
             uint32_t rows) {
  uint64_t y = 0;
  uint64_t u = 0;
  uint64_t v = 0;
  uint64_t columns = Smaller(radius, width);
  for (uint32_t x = 0; x < columns; ++x) {
    y += sumY[x];
    u += sumU[x];
    v += sumV[x];
  }
  for (uint32_t x = 0; x < width; ++x) {
    if (radius < width - x) {
      y += sumY[x + radius];
      u += sumU[x + radius];
      v += sumV[x + radius];
      ++columns;
    }
    if (x > radius) {
      y -= sumY[x - radius - 1];
      u -= sumU[x - radius - 1];
      v -= sumV[x - radius - 1];
      --columns;
    }
    const uint64_t pixels = columns * rows;
    destination[2 * size_t{x}] = static_cast<uint8_t>(y / pixels);
    meanU[x] = static_cast<uint32_t>(u / pixels);
    meanV[x] = static_cast<uint32_t>(v / pixels);
  }
  for (size_t x = 0; x < width; x += 2) {
    destination[2 * x + 1] = static_cast<uint8_t>((meanU[x] + meanU[x + 1]) >> 1);
    destination[2 * x + 3] = static_cast<uint8_t>((meanV[x] + meanV[x + 1]) >> 1);
  }
}

}  // namespace

void BoxBlur(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
             uint32_t parameter) {
  const uint32_t side = Smaller(width, height);
  const uint32_t radius = uint64_t{parameter} * 2 > side ? side / 2 : parameter;
  const size_t entries = width;
  uint32_t* sums = nullptr;
  if (radius != 0 && width % 2 == 0) {
    sums = static_cast<uint32_t*>(KolmAllocate(entries * 5 * sizeof(uint32_t)));
  }
  if (sums == nullptr) {
    CopyFrame(source, destination, width, height);
    return;
  }
  KolmZero(sums, entries * 5 * sizeof(uint32_t));
  uint32_t* sumY = sums;
  uint32_t* sumU = sumY + entries;
  uint32_t* sumV = sumU + entries;
  uint32_t* meanU = sumV + entries;
  uint32_t* meanV = meanU + entries;

  const uint32_t pairs = width / 2;
  uint32_t rows = 0;
  for (; rows < Smaller(radius, height); ++rows) {
    CountRow<true>(source + FrameBytes(width, rows), pairs, sumY, sumU, sumV);
  }
  for (uint32_t y = 0; y < height; ++y) {
    if (radius < height - y) {
      CountRow<true>(source + FrameBytes(width, y + radius), pairs, sumY, sumU, sumV);
      ++rows;
    }
    if (y > radius) {
      CountRow<false>(source + FrameBytes(width, y - radius - 1), pairs, sumY, sumU, sumV);
      --rows;
    }
    MeanRow(sumY, sumU, sumV, meanU, meanV, destination + FrameBytes(width, y), width, radius,
            rows);
  }
  KolmFree(sums);
}

}  // namespace kolm
