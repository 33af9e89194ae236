// Box blur by running sums: its cost does not depend on the radius.
#include "effects/box_blur_effect.h"

#include "effects/frame.h"
#include "imaging/vectors_sse2.h"
#include "platform/instruction_set.h"

namespace kolm {
namespace {

uint32_t Smaller(uint32_t a, uint32_t b) { return a < b ? a : b; }

struct Blur {
  const uint8_t* source;
  uint8_t* destination;
  uint32_t width, height;
  uint32_t radius;  // at most half the smaller side, at least 1
};

// Moves the window down the frame: calls countRow(entering, leaving) for the source rows that enter
// and leave it, either of which may be null, and blurRow(destination row, rows) with the number of
// rows inside.
template <typename CountRow, typename BlurRow>
void SweepRows(const Blur& blur, CountRow countRow, BlurRow blurRow) {
  const auto row = [&blur](uint32_t y) { return blur.source + FrameBytes(blur.width, y); };
  uint32_t rows = 0;
  for (; rows < blur.radius; ++rows) countRow(row(rows), nullptr);
  for (uint32_t y = 0; y < blur.height; ++y) {
    const bool enters = blur.radius < blur.height - y;
    const bool leaves = y > blur.radius;
    if (enters || leaves) {
      countRow(enters ? row(y + blur.radius) : nullptr,
               leaves ? row(y - blur.radius - 1) : nullptr);
    }
    rows = rows + enters - leaves;
    blurRow(blur.destination + FrameBytes(blur.width, y), rows);
  }
}

// ---- Any radius: 32-bit column sums ----

struct ColumnSums {
  uint32_t *y, *u, *v;  // of each pixel; a pair's chroma counts for both of its pixels
};

void CountRow_Plain(const uint8_t* entering, const uint8_t* leaving, uint32_t width,
                    const ColumnSums& sums) {
  const auto change = [entering, leaving](size_t byte) {
    const uint32_t in = entering == nullptr ? 0 : entering[byte];
    const uint32_t out = leaving == nullptr ? 0 : leaving[byte];
    return in - out;
  };
  for (uint32_t x = 0; x < width; ++x) {
    const size_t pair = size_t{x / 2} * 4;
    sums.y[x] += change(2 * size_t{x});
    sums.u[x] += change(pair + 1);
    sums.v[x] += change(pair + 3);
  }
}

// The window's sums are 64-bit, so that no frame is too large for them.
void BlurRow_Plain(const ColumnSums& sums, uint32_t* meanU, uint32_t* meanV, const Blur& blur,
                   uint8_t* destination, uint32_t rows) {
  uint64_t y = 0;
  uint64_t u = 0;
  uint64_t v = 0;
  uint64_t columns = blur.radius;
  for (uint32_t x = 0; x < columns; ++x) {
    y += sums.y[x];
    u += sums.u[x];
    v += sums.v[x];
  }
  for (uint32_t x = 0; x < blur.width; ++x) {
    if (blur.radius < blur.width - x) {
      y += sums.y[x + blur.radius];
      u += sums.u[x + blur.radius];
      v += sums.v[x + blur.radius];
      ++columns;
    }
    if (x > blur.radius) {
      y -= sums.y[x - blur.radius - 1];
      u -= sums.u[x - blur.radius - 1];
      v -= sums.v[x - blur.radius - 1];
      --columns;
    }
    const uint64_t pixels = columns * rows;
    destination[2 * size_t{x}] = static_cast<uint8_t>(y / pixels);
    meanU[x] = static_cast<uint32_t>(u / pixels);
    meanV[x] = static_cast<uint32_t>(v / pixels);
  }
  for (size_t x = 0; x < blur.width; x += 2) {
    destination[2 * x + 1] = static_cast<uint8_t>((meanU[x] + meanU[x + 1]) >> 1);
    destination[2 * x + 3] = static_cast<uint8_t>((meanV[x] + meanV[x + 1]) >> 1);
  }
}

size_t WorkBytes_Plain(uint32_t width) { return size_t{width} * 5 * sizeof(uint32_t); }

void Blur_Plain(const Blur& blur, uint8_t* work) {
  uint32_t* entries = reinterpret_cast<uint32_t*>(work);
  const size_t width = blur.width;
  const ColumnSums sums = {entries, entries + width, entries + 2 * width};
  uint32_t* meanU = entries + 3 * width;
  uint32_t* meanV = entries + 4 * width;
  SweepRows(
      blur,
      [&blur, &sums](const uint8_t* entering, const uint8_t* leaving) {
        CountRow_Plain(entering, leaving, blur.width, sums);
      },
      [&blur, &sums, meanU, meanV](uint8_t* destination, uint32_t rows) {
        BlurRow_Plain(sums, meanU, meanV, blur, destination, rows);
      });
}

// ---- Radius up to 8: 16-bit sums in vectors of 8 pixels ----
//
// A column sum of 17 rows fits 16 bits. The window's sum over the columns is the difference of two
// running sums modulo 65536, and so exact, while the window holds no more than 257 pixels (radius
// 7). A larger one is added up from two halves.

constexpr uint32_t kLargestVectorRadius = 8;
constexpr uint32_t kLargestNarrowRadius = 7;
constexpr uint32_t kVectorPixels = 8;
constexpr uint32_t kLargestVectorWidth = 65536;  // keeps 32-bit column numbers from wrapping

// Running sums stand `kMargin` entries behind the start of their array: the entries before the
// first column are 0, those behind the last repeat the total, so that windows are clipped by what
// they read. 2 * 10 entries are the most that an access reaches out; whole vectors are written.
constexpr uint32_t kMargin = 24;

// Arrays of 16-bit entries. Chroma entries are U and V of each pair in turn, as many as pixels.
struct VectorSums {
  uint16_t* columnY;
  uint16_t* columnUV;
  uint16_t* runningY;
  uint16_t* runningUV;
};

// What the sums of 8 neighbouring pixels are divided by: the window's pixels inside the frame, and
// 65536 divided by it (131072 for wide windows).
struct Divisor {
  __m128i pixels, pixelsLessOne, reciprocal;
};

struct Divisors {
  Divisor y;     // of 8 pixels
  Divisor even;  // chroma of the 4 even pixels: U and V alike
  Divisor odd;   // chroma of the 4 odd pixels
};

uint32_t RoundedWidth(uint32_t width) {
  return (width + kVectorPixels - 1) / kVectorPixels * kVectorPixels;
}

size_t ArrayEntries(uint32_t width) { return size_t{RoundedWidth(width)} + 2 * kMargin; }

size_t WorkBytes_SSE2(uint32_t width) { return ArrayEntries(width) * 4 * sizeof(uint16_t); }

// The totals of the columns so far, in every lane that they are needed in.
struct Totals {
  __m128i y, uv;
};

// Changes 8 columns and writes their running sums.
inline void CountVector_SSE2(__m128i entering, __m128i leaving, uint32_t x, const VectorSums& sums,
                             Totals* totals) {
  const __m128i lumaBytes = _mm_set1_epi16(0xFF);
  __m128i y = _mm_sub_epi16(_mm_and_si128(entering, lumaBytes), _mm_and_si128(leaving, lumaBytes));
  __m128i uv = _mm_sub_epi16(_mm_srli_epi16(entering, 8), _mm_srli_epi16(leaving, 8));
  y = _mm_add_epi16(y, LoadVector_SSE2(sums.columnY + x));
  uv = _mm_add_epi16(uv, LoadVector_SSE2(sums.columnUV + x));
  StoreVector_SSE2(sums.columnY + x, y);
  StoreVector_SSE2(sums.columnUV + x, uv);
  y = _mm_add_epi16(y, _mm_slli_si128(y, 2));
  y = _mm_add_epi16(y, _mm_slli_si128(y, 4));
  y = _mm_add_epi16(y, _mm_slli_si128(y, 8));
  y = _mm_add_epi16(y, totals->y);
  uv = _mm_add_epi16(uv, _mm_slli_si128(uv, 4));
  uv = _mm_add_epi16(uv, _mm_slli_si128(uv, 8));
  uv = _mm_add_epi16(uv, totals->uv);
  StoreVector_SSE2(sums.runningY + kMargin + x, y);
  StoreVector_SSE2(sums.runningUV + kMargin + x, uv);
  totals->y = _mm_shuffle_epi32(_mm_shufflehi_epi16(y, 0xFF), 0xFF);
  totals->uv = _mm_shuffle_epi32(uv, 0xFF);
}

// `fill` bytes of a row that ends within the vector.
inline __m128i LoadPart(const uint8_t* row, size_t fill) {
  alignas(16) uint8_t bytes[16] = {};
  for (size_t i = 0; i < fill; ++i) bytes[i] = row[i];
  return LoadVector_SSE2(bytes);
}

template <bool enters, bool leaves>
void CountRow_SSE2(const uint8_t* entering, const uint8_t* leaving, uint32_t width,
                   const VectorSums& sums) {
  const __m128i none = _mm_setzero_si128();
  Totals totals = {none, none};
  uint32_t x = 0;
  for (; x + kVectorPixels <= width; x += kVectorPixels) {
    CountVector_SSE2(enters ? LoadVector_SSE2(entering + RowBytes(x)) : none,
                     leaves ? LoadVector_SSE2(leaving + RowBytes(x)) : none, x, sums, &totals);
  }
  if (x < width) {
    const size_t fill = RowBytes(width - x);
    CountVector_SSE2(enters ? LoadPart(entering + RowBytes(x), fill) : none,
                     leaves ? LoadPart(leaving + RowBytes(x), fill) : none, x, sums, &totals);
    x += kVectorPixels;
  }
  for (const uint32_t end = x + kMargin; x < end; x += kVectorPixels) {
    StoreVector_SSE2(sums.runningY + kMargin + x, totals.y);
    StoreVector_SSE2(sums.runningUV + kMargin + x, totals.uv);
  }
}

// The quotient of a sum that is `estimate` (half the sum, rounded up, for wide windows) and, modulo
// 65536, `sum`. The reciprocal is rounded down so that the estimated quotient is right or one too
// small; the remainder tells.
inline __m128i Divide_SSE2(__m128i estimate, __m128i sum, const Divisor& divisor) {
  const __m128i quotient = _mm_mulhi_epu16(estimate, divisor.reciprocal);
  const __m128i remainder = _mm_sub_epi16(sum, _mm_mullo_epi16(quotient, divisor.pixels));
  return _mm_sub_epi16(quotient, _mm_cmpgt_epi16(remainder, divisor.pixelsLessOne));
}

// The mean of a window whose two parts sum up to `first` and `second`.
template <bool wide>
inline __m128i Mean_SSE2(__m128i first, __m128i second, const Divisor& divisor) {
  const __m128i sum = _mm_add_epi16(first, second);
  return Divide_SSE2(wide ? _mm_avg_epu16(first, second) : sum, sum, divisor);
}

// 8 pixels from x on.
template <bool wide, bool oddRadius>
inline __m128i BlurVector_SSE2(const VectorSums& sums, uint32_t x, uint32_t radius,
                               const Divisors& divisors) {
  const uint16_t* y = sums.runningY + kMargin + x;
  const __m128i end = LoadVector_SSE2(y + radius);
  const __m128i start = LoadVector_SSE2(y - radius - 1);
  __m128i meanY;
  if constexpr (wide) {
    const __m128i middle = LoadVector_SSE2(y - 1);
    meanY = Mean_SSE2<true>(_mm_sub_epi16(end, middle), _mm_sub_epi16(middle, start), divisors.y);
  } else {
    const __m128i sum = _mm_sub_epi16(end, start);
    meanY = Divide_SSE2(sum, sum, divisors.y);
  }

  // A pixel's window holds whole pairs but for one pixel at one end: with an even radius the right
  // one for even pixels, the left one for odd pixels, otherwise the other way round. Its chroma is
  // the sum over the pairs with the halved pair and over those without it.
  const uint32_t pairs = radius / 2;
  const uint16_t* uv = sums.runningUV + kMargin + x;
  const __m128i last = LoadVector_SSE2(uv + 2 * pairs);
  const __m128i besideLast = LoadVector_SSE2(oddRadius ? uv + 2 * pairs + 2 : uv + 2 * pairs - 2);
  const __m128i before = LoadVector_SSE2(uv - 2 * pairs - 2);
  const __m128i besideBefore = LoadVector_SSE2(oddRadius ? uv - 2 * pairs - 4 : uv - 2 * pairs);
  const __m128i shared = _mm_sub_epi16(last, before);
  const __m128i halfRight = _mm_sub_epi16(besideLast, before);
  const __m128i halfLeft = _mm_sub_epi16(last, besideBefore);
  const __m128i chroma =
      _mm_add_epi16(Mean_SSE2<wide>(shared, halfRight, oddRadius ? divisors.odd : divisors.even),
                    Mean_SSE2<wide>(shared, halfLeft, oddRadius ? divisors.even : divisors.odd));
  return _mm_or_si128(meanY, _mm_slli_epi16(_mm_srli_epi16(chroma, 1), 8));
}

// How many columns of the window around x lie inside the frame. Behind the frame's last column it
// counts as if the frame went on, to keep away from 0.
uint32_t ColumnsInside(const Blur& blur, uint32_t x) {
  const uint32_t first = x > blur.radius ? x - blur.radius : 0;
  const uint32_t last = x < blur.width ? Smaller(x + blur.radius, blur.width - 1) : x;
  return last - first + 1;
}

Divisors DivisorsAt(const Blur& blur, uint32_t x, uint32_t rows, bool wide) {
  alignas(16) uint16_t pixels[3][kVectorPixels];
  alignas(16) uint16_t reciprocals[3][kVectorPixels];
  const uint32_t dividend = wide ? 131071 : 65535;
  const auto put = [&](uint32_t kind, uint32_t lane, uint32_t column) {
    const uint32_t count = rows * ColumnsInside(blur, column);
    pixels[kind][lane] = static_cast<uint16_t>(count);
    reciprocals[kind][lane] = static_cast<uint16_t>(dividend / count);
  };
  for (uint32_t lane = 0; lane < kVectorPixels; ++lane) {
    put(0, lane, x + lane);
    put(1, lane, x + lane / 2 * 2);
    put(2, lane, x + lane / 2 * 2 + 1);
  }
  Divisor divisors[3];
  for (uint32_t kind = 0; kind < 3; ++kind) {
    const __m128i count = LoadVector_SSE2(pixels[kind]);
    divisors[kind] = {count, _mm_sub_epi16(count, _mm_set1_epi16(1)),
                      LoadVector_SSE2(reciprocals[kind])};
  }
  return {divisors[0], divisors[1], divisors[2]};
}

// The divisors of one number of rows. They differ in the first vector and in the last two.
struct RowDivisors {
  uint32_t rows;
  Divisors first, middle, lastButOne, last;
};

template <bool wide, bool oddRadius>
void BlurRow_SSE2(const Blur& blur, const VectorSums& sums, const RowDivisors& divisors,
                  uint8_t* destination) {
  const auto blurAt = [&](uint32_t x, const Divisors& at) {
    return BlurVector_SSE2<wide, oddRadius>(sums, x, blur.radius, at);
  };
  const uint32_t last = RoundedWidth(blur.width) - kVectorPixels;
  uint32_t x = 0;
  if (last > 0) {
    StoreVector_SSE2(destination, blurAt(0, divisors.first));
    x = kVectorPixels;
  }
  const Divisors middle = divisors.middle;
  for (; x + kVectorPixels < last; x += kVectorPixels) {
    StoreVector_SSE2(destination + 2 * size_t{x}, blurAt(x, middle));
  }
  if (x < last) StoreVector_SSE2(destination + 2 * size_t{x}, blurAt(x, divisors.lastButOne));
  alignas(16) uint8_t bytes[16];
  StoreVector_SSE2(bytes, blurAt(last, divisors.last));
  KolmCopy(destination + 2 * size_t{last}, bytes, RowBytes(blur.width - last));
}

template <bool wide, bool oddRadius>
void Blur_SSE2(const Blur& blur, uint8_t* work) {
  uint16_t* entries = reinterpret_cast<uint16_t*>(work);
  const size_t size = ArrayEntries(blur.width);
  const VectorSums sums = {entries, entries + size, entries + 2 * size, entries + 3 * size};
  const uint32_t last = RoundedWidth(blur.width) - kVectorPixels;
  RowDivisors divisors = {};
  SweepRows(
      blur,
      [&blur, &sums](const uint8_t* entering, const uint8_t* leaving) {
        const auto countRow = leaving == nullptr    ? CountRow_SSE2<true, false>
                              : entering == nullptr ? CountRow_SSE2<false, true>
                                                    : CountRow_SSE2<true, true>;
        countRow(entering, leaving, blur.width, sums);
      },
      [&](uint8_t* destination, uint32_t rows) {
        if (divisors.rows != rows) {
          divisors.rows = rows;
          divisors.first = DivisorsAt(blur, 0, rows, wide);
          divisors.last = DivisorsAt(blur, last, rows, wide);
          if (last >= kVectorPixels) {
            divisors.lastButOne = DivisorsAt(blur, last - kVectorPixels, rows, wide);
          }
          if (last >= 3 * kVectorPixels)
            divisors.middle = DivisorsAt(blur, kVectorPixels, rows, wide);
        }
        BlurRow_SSE2<wide, oddRadius>(blur, sums, divisors, destination);
      });
}

}  // namespace

void BoxBlur(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
             uint32_t parameter) {
  const uint32_t side = Smaller(width, height);
  const Blur blur = {
      .source = source,
      .destination = destination,
      .width = width,
      .height = height,
      .radius = uint64_t{parameter} * 2 > side ? side / 2 : parameter,
  };
  const bool vectors = blur.radius <= kLargestVectorRadius && width <= kLargestVectorWidth &&
                       AvailableInstructionSet() >= InstructionSet::SSE2;
  const size_t workBytes = vectors ? WorkBytes_SSE2(width) : WorkBytes_Plain(width);
  uint8_t* work = nullptr;
  if (blur.radius != 0 && width % 2 == 0) work = static_cast<uint8_t*>(KolmAllocate(workBytes));
  if (work == nullptr) {
    CopyFrame(source, destination, width, height);
    return;
  }
  KolmZero(work, workBytes);
  if (!vectors) {
    Blur_Plain(blur, work);
  } else if (blur.radius > kLargestNarrowRadius) {
    Blur_SSE2<true, false>(blur, work);
  } else if (blur.radius % 2 != 0) {
    Blur_SSE2<false, true>(blur, work);
  } else {
    Blur_SSE2<false, false>(blur, work);
  }
  KolmFree(work);
}

}  // namespace kolm
