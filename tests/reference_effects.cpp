// Each effect in its simplest form. What leaves no picture is the source unchanged.
#include "tests/reference_effects.h"

#include <algorithm>
#include <stdexcept>

namespace kolm::reference {
namespace {

// Thrown where a rectangle asks for positions that 16.16 fixed point in 32 bits does not hold.
struct PositionsTooLarge {};

bool PositionsHold(int64_t first, int64_t size) {
  return size * 0x10000 <= INT32_MAX && (first + size - 1) * 0x10000 <= INT32_MAX;
}

struct Frame {
  const Bytes& source;
  uint32_t width, height;

  size_t RowBytes() const { return size_t{width} * 2; }
  size_t Size() const { return RowBytes() * height; }
  size_t Offset(uint32_t row, uint32_t column) const {
    return row * RowBytes() + size_t{column} * 2;
  }
  int Luma(uint32_t row, uint32_t column) const { return source.at(Offset(row, column)); }
  Bytes Copy() const { return Bytes(source.data(), source.data() + Size()); }
  Crop Whole() const { return {0, 0, static_cast<int32_t>(width), static_cast<int32_t>(height)}; }
  Bytes Scaled(uint32_t dstWidth, uint32_t dstHeight, Crop crop) const {
    if (!PositionsHold(crop.x, static_cast<uint32_t>(crop.width)) ||
        !PositionsHold(crop.y, static_cast<uint32_t>(crop.height))) {
      throw PositionsTooLarge{};
    }
    return CropScaleYuv16(source, static_cast<int32_t>(width), static_cast<int32_t>(dstWidth),
                          static_cast<int32_t>(dstHeight), crop);
  }
};

Bytes Black(const Frame& frame) {
  Bytes out;
  while (out.size() < frame.Size()) {
    out.push_back(0);
    out.push_back(128);
  }
  return out;
}

uint32_t Even(uint32_t value) { return value - value % 2; }

void AppendLine(Bytes& out, const Bytes& picture, uint32_t width, uint32_t row) {
  const size_t rowBytes = size_t{width} * 2;
  const uint8_t* line = &picture.at(row * rowBytes);
  out.insert(out.end(), line, line + rowBytes);
}

// ---- Geometry ----

Bytes ZoomIn(const Frame& frame, uint32_t parameter) {
  if (parameter == 0 || parameter > 10 || frame.width % 2 == 1) {
    return frame.Copy();
  }
  const auto cropSide = [&](uint32_t side) {
    return Even((side - side / 4) * (10 - parameter) / 10 + side / 4);
  };
  const uint32_t cropWidth = cropSide(frame.width), cropHeight = cropSide(frame.height);
  if (cropWidth == 0 || cropHeight == 0) return frame.Copy();
  const uint32_t x = Even((frame.width - cropWidth) / 2);
  const uint32_t y = Even((frame.height - cropHeight) / 2);
  return frame.Scaled(frame.width, frame.height,
                      {static_cast<int32_t>(x), static_cast<int32_t>(y),
                       static_cast<int32_t>(cropWidth), static_cast<int32_t>(cropHeight)});
}

Bytes ZoomOut(const Frame& frame, uint32_t parameter) {
  if (parameter == 0 || parameter > 10) return frame.Copy();
  const auto reducedSide = [&](uint32_t side) {
    return Even(side - (side - side / 4) * parameter / 10);
  };
  const uint32_t width = reducedSide(frame.width), height = reducedSide(frame.height);
  if (width == 0 || height == 0) return frame.Copy();
  const Bytes reduced = frame.Scaled(width, height, frame.Whole());
  Bytes out = Black(frame);
  const size_t left = size_t{frame.width - width} / 4 * 4;
  const size_t top = (frame.height - height) / 2;
  for (size_t row = 0; row < height; ++row) {
    for (size_t byte = 0; byte < size_t{width} * 2; ++byte) {
      out.at((top + row) * frame.RowBytes() + left + byte) = reduced.at(row * width * 2 + byte);
    }
  }
  return out;
}

Bytes PictureGrid(const Frame& frame, uint32_t parameter) {
  if (static_cast<int32_t>(parameter) <= 1 || frame.width % 2 == 1) return frame.Copy();
  const uint32_t tileWidth = Even(frame.width / parameter);
  const uint32_t tileHeight = frame.height / parameter;
  if (tileWidth == 0 || tileHeight == 0) return frame.Copy();
  const uint32_t lastWidth = frame.width - (parameter - 1) * tileWidth;
  const uint32_t lastHeight = frame.height - (parameter - 1) * tileHeight;
  const Bytes a = frame.Scaled(tileWidth, tileHeight, frame.Whole());
  const Bytes b = frame.Scaled(lastWidth, tileHeight, frame.Whole());
  const Bytes c = frame.Scaled(tileWidth, lastHeight, frame.Whole());
  const Bytes d = frame.Scaled(lastWidth, lastHeight, frame.Whole());
  Bytes out;
  for (uint32_t tileRow = 0; tileRow + 1 < parameter; ++tileRow) {
    for (uint32_t line = 0; line < tileHeight; ++line) {
      for (uint32_t tile = 0; tile + 1 < parameter; ++tile) AppendLine(out, a, tileWidth, line);
      AppendLine(out, b, lastWidth, line);
    }
  }
  for (uint32_t line = 0; line < lastHeight; ++line) {
    for (uint32_t tile = 0; tile + 1 < parameter; ++tile) AppendLine(out, c, tileWidth, line);
    AppendLine(out, d, lastWidth, line);
  }
  return out;
}

using Strips = std::array<uint32_t, 8>;

Bytes SideBySide(const Frame& frame, const Strips& widths) {
  std::array<Bytes, 8> strips;
  for (uint32_t i = 0; i < 8; ++i) {
    const Crop slice = {static_cast<int32_t>(i * frame.width / 8), 0,
                        static_cast<int32_t>(frame.width / 8), static_cast<int32_t>(frame.height)};
    strips[i] = frame.Scaled(widths[i], frame.height, slice);
  }
  Bytes out;
  for (uint32_t row = 0; row < frame.height; ++row) {
    for (uint32_t i = 0; i < 8; ++i) AppendLine(out, strips[i], widths[i], row);
  }
  return out;
}

Bytes Stacked(const Frame& frame, const Strips& heights) {
  Bytes out;
  for (uint32_t i = 0; i < 8; ++i) {
    const Crop slice = {0, static_cast<int32_t>(i * frame.height / 8),
                        static_cast<int32_t>(frame.width), static_cast<int32_t>(frame.height / 8)};
    const Bytes strip = frame.Scaled(frame.width, heights[i], slice);
    out.insert(out.end(), strip.begin(), strip.end());
  }
  return out;
}

Bytes StripWarp(const Frame& frame, bool horizontal, bool bulge) {
  if (frame.width % 2 == 1) return frame.Copy();
  if (horizontal) {
    const uint32_t k = frame.width / 60;
    if (k == 0) return frame.Copy();
    const uint32_t rest = frame.width / 2 - 8 * k - 4 * k - 2 * k;
    // Pixel pairs stay whole.
    const uint32_t first = rest - rest % 2, second = rest + rest % 2;
    if (bulge) return SideBySide(frame, {2 * k, 4 * k, 8 * k, first, second, 8 * k, 4 * k, 2 * k});
    return SideBySide(frame, {first, 8 * k, 4 * k, 2 * k, 2 * k, 4 * k, 8 * k, second});
  }
  const uint32_t k = frame.height / 30;
  if (k == 0) return frame.Copy();
  const uint32_t rest = frame.height / 2 - 4 * k - 2 * k - k;
  Strips heights = bulge ? Strips{k, 2 * k, 4 * k, rest, rest, 4 * k, 2 * k, k}
                         : Strips{rest, 4 * k, 2 * k, k, k, 2 * k, 4 * k, rest};
  heights[7] += frame.height % 2;
  return Stacked(frame, heights);
}

// ---- Tones ----

// Applies `tone(pairByte, value)` to each byte of each pixel pair, an odd last pixel rounded up.
template <typename Tone>
Bytes MapPairs(const Frame& frame, Tone tone) {
  Bytes out;
  const size_t pairs = (size_t{frame.width} * frame.height + 1) / 2;
  for (size_t i = 0; i < pairs * 4; ++i) {
    out.push_back(static_cast<uint8_t>(tone(i % 4, frame.source.at(i))));
  }
  return out;
}

Bytes Grayscale(const Frame& frame) {
  Bytes out;
  for (size_t i = 0; i < frame.Size(); ++i) {
    out.push_back(i % 2 == 0 ? frame.source.at(i) : 128);
  }
  return out;
}

Bytes Sepia(const Frame& frame) {
  return MapPairs(frame, [](size_t byte, int value) {
    if (byte == 1) return 96;
    if (byte == 3) return 150;
    return value;
  });
}

Bytes Negative(const Frame& frame) {
  return MapPairs(frame, [](size_t byte, int value) {
    return byte % 2 == 0 ? 255 - value : (256 - value) % 256;
  });
}

Bytes Posterize(const Frame& frame, uint32_t parameter) {
  if (parameter == 0 || parameter > 11) return frame.Copy();
  const int levels = (11 - static_cast<int>(parameter)) * 20 / 10;
  return MapPairs(frame, [levels](size_t byte, int value) {
    const int level = value * levels / 255;
    if (level == 0) return 16;
    if (level < levels - 1) return level * 255 / (levels - 1);
    return byte % 2 == 0 ? 235 : 240;
  });
}

// ---- Neighbourhoods ----

Bytes Pixelate(const Frame& frame, uint32_t parameter) {
  const uint64_t block = uint64_t{parameter} * 4;
  if (block == 0 || block > frame.width || block > frame.height) return frame.Copy();
  const uint64_t across = frame.width / block, down = frame.height / block;
  Bytes out(frame.Size());
  for (uint32_t row = 0; row < frame.height; ++row) {
    for (uint32_t column = 0; column < frame.width; ++column) {
      const uint64_t blockRow = std::min(row / block, down - 1);
      const uint64_t blockColumn = std::min(column / block, across - 1);
      const size_t corner = frame.Offset(static_cast<uint32_t>(blockRow * block),
                                         static_cast<uint32_t>(blockColumn * block));
      out.at(frame.Offset(row, column)) = frame.source.at(corner);
      out.at(frame.Offset(row, column) + 1) = frame.source.at(corner + (column % 2 == 0 ? 1 : 3));
    }
  }
  return out;
}

int EmbossedLuma(int difference) { return std::clamp(difference + 128, 16, 235); }

int ReliefLuma(int difference) { return (std::clamp(difference, -127, 128) + 256) % 256; }

Bytes GreyDifference(const Frame& frame, int (*luma)(int)) {
  Bytes out;
  for (uint32_t row = 0; row < frame.height; ++row) {
    for (uint32_t column = 0; column < frame.width; ++column) {
      const bool interior =
          row >= 1 && row + 1 < frame.height && column >= 1 && column + 1 < frame.width;
      const int value = frame.Luma(row, column);
      out.push_back(
          static_cast<uint8_t>(interior ? luma(value - frame.Luma(row - 1, column - 1)) : value));
      out.push_back(128);
    }
  }
  return out;
}

Bytes ColourDifference(const Frame& frame, int (*luma)(int)) {
  Bytes out = frame.Copy();
  for (uint32_t row = 1; row + 1 < frame.height; ++row) {
    for (uint32_t column = 1; column + 1 < frame.width; ++column) {
      const int difference = frame.Luma(row, column) - frame.Luma(row - 1, column - 1);
      out.at(frame.Offset(row - 1, column)) = static_cast<uint8_t>(luma(difference));
    }
  }
  return out;
}

Bytes Sketch(const Frame& frame) {
  static constexpr int kKernels[5][3][3] = {
      {{1, 2, 1}, {0, 0, 0}, {-1, -2, -1}},  //
      {{2, 1, 0}, {1, 0, -1}, {0, -1, -2}},  //
      {{1, 0, -1}, {2, 0, -2}, {1, 0, -1}},  //
      {{0, -1, -2}, {1, 0, -1}, {2, 1, 0}},  //
      {{-1, -2, -1}, {0, 0, 0}, {1, 2, 1}},
  };
  Bytes out = Black(frame);
  for (uint32_t row = 1; row + 1 < frame.height; ++row) {
    for (uint32_t column = 1; column + 1 < frame.width; ++column) {
      int strongest = 0;
      for (const auto& kernel : kKernels) {
        int sum = 0;
        for (uint32_t i = 0; i < 3; ++i) {
          for (uint32_t j = 0; j < 3; ++j) {
            sum += kernel[i][j] * frame.Luma(row - 1 + i, column - 1 + j);
          }
        }
        strongest = std::max(strongest, std::clamp(sum, 16, 235));
      }
      out.at(frame.Offset(row, column)) = static_cast<uint8_t>(251 - strongest);
    }
  }
  return out;
}

// ---- Blur ----

struct Means {
  uint64_t y, u, v;
};

Means WindowMeans(const Frame& frame, uint32_t radius, uint32_t column, uint32_t row) {
  const uint32_t left = column - std::min(column, radius);
  const uint32_t right = std::min(column + radius, frame.width - 1);
  const uint32_t top = row - std::min(row, radius);
  const uint32_t bottom = std::min(row + radius, frame.height - 1);
  Means sums = {0, 0, 0};
  uint64_t count = 0;
  for (uint32_t y = top; y <= bottom; ++y) {
    for (uint32_t x = left; x <= right; ++x) {
      const uint8_t* pair = &frame.source.at(frame.Offset(y, x - x % 2));
      sums.y += pair[x % 2 == 0 ? 0 : 2];
      sums.u += pair[1];
      sums.v += pair[3];
      ++count;
    }
  }
  return {sums.y / count, sums.u / count, sums.v / count};
}

Bytes BoxBlur(const Frame& frame, uint32_t parameter) {
  if (parameter == 0 || frame.width % 2 == 1) return frame.Copy();
  Bytes out;
  for (uint32_t row = 0; row < frame.height; ++row) {
    for (uint32_t pair = 0; pair < frame.width / 2; ++pair) {
      const auto bytes = BlurredPair(frame.source, frame.width, frame.height, parameter, pair, row);
      out.insert(out.end(), bytes.begin(), bytes.end());
    }
  }
  return out;
}

}  // namespace

uint32_t BlurRadius(uint32_t width, uint32_t height, uint32_t parameter) {
  const uint32_t smallerSide = std::min(width, height);
  return uint64_t{parameter} * 2 > smallerSide ? smallerSide / 2 : parameter;
}

std::array<uint8_t, 4> BlurredPair(const Bytes& source, uint32_t width, uint32_t height,
                                   uint32_t parameter, uint32_t pair, uint32_t row) {
  const Frame frame = {source, width, height};
  const uint32_t radius = BlurRadius(width, height, parameter);
  const Means a = WindowMeans(frame, radius, pair * 2, row);
  const Means b = WindowMeans(frame, radius, pair * 2 + 1, row);
  return {static_cast<uint8_t>(a.y), static_cast<uint8_t>((a.u + b.u) / 2),
          static_cast<uint8_t>(b.y), static_cast<uint8_t>((a.v + b.v) / 2)};
}

namespace {

Bytes ApplyToFrame(uint32_t id, const Frame& frame, uint32_t parameter) {
  switch (id) {
    case 1:
      return ZoomIn(frame, parameter);
    case 2:
      return ZoomOut(frame, parameter);
    case 3:
      return Grayscale(frame);
    case 4:
      return Sepia(frame);
    case 5:
      return BoxBlur(frame, parameter);
    case 6:
      return Pixelate(frame, parameter);
    case 7:
      return GreyDifference(frame, EmbossedLuma);
    case 8:
      return ColourDifference(frame, EmbossedLuma);
    case 9:
      return PictureGrid(frame, parameter);
    case 10:
      return GreyDifference(frame, ReliefLuma);
    case 11:
      return ColourDifference(frame, ReliefLuma);
    case 12:
      return Sketch(frame);
    case 13:
      return Negative(frame);
    case 14:
      return Posterize(frame, parameter);
    case 15:
      return StripWarp(frame, true, true);
    case 16:
      return StripWarp(frame, true, false);
    case 17:
      return StripWarp(frame, false, true);
    case 18:
      return StripWarp(frame, false, false);
    default:
      throw std::invalid_argument("no such effect");
  }
}

}  // namespace

Bytes ApplyEffect(uint32_t id, const Bytes& source, uint32_t width, uint32_t height,
                  uint32_t parameter) {
  const Frame frame = {source, width, height};
  try {
    return ApplyToFrame(id, frame, parameter);
  } catch (const PositionsTooLarge&) {
    return frame.Copy();
  }
}

}  // namespace kolm::reference
