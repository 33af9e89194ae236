// Everything that may be large is a 64-bit number here.
#include "tests/reference_background.h"

#include <algorithm>
#include <cstdlib>

namespace kolm::reference {
namespace {

constexpr int64_t kWidth = 640, kHeight = 480;
constexpr size_t kRecordFrameBytes = kWidth * kHeight * 2;

constexpr int32_t kSuccess = 0;
constexpr int32_t kUnsuccessful = static_cast<int32_t>(0xC0000001);
constexpr int32_t kInvalidParameter = static_cast<int32_t>(0xC000000D);
constexpr int32_t kEndOfFile = static_cast<int32_t>(0xC0000011);
constexpr int32_t kInsufficientResources = static_cast<int32_t>(0xC000009A);

uint8_t Blend(int background, int live, int alpha) {
  return static_cast<uint8_t>((background * alpha + live * (255 - alpha)) >> 8);
}

uint8_t ByteAt(const Bytes& bytes, int64_t position) {
  return position < static_cast<int64_t>(bytes.size()) ? bytes[position] : 0;
}

int64_t Between(int64_t from, int64_t to, int64_t fraction) {
  return (((to - from) * fraction) >> 16) + from;
}

// A read of a file: `bytes` is as long as what there was.
struct Read {
  int32_t status;
  Bytes bytes;
};

Read ReadAt(const Bytes& file, int64_t offset, int64_t count) {
  if (offset < 0) return {kInvalidParameter, {}};
  const auto size = static_cast<int64_t>(file.size());
  if (offset >= size) return {kEndOfFile, {}};
  return {kSuccess, Bytes(file.begin() + offset, file.begin() + std::min(size, offset + count))};
}

uint32_t LittleEndian(const Bytes& bytes, int64_t position, int count) {
  uint32_t value = 0;
  for (int i = 0; i < count; ++i) value |= uint32_t{ByteAt(bytes, position + i)} << (8 * i);
  return value;
}

}  // namespace

Bytes BlendBackground(uint32_t width, uint32_t height, const Bytes& background, const Bytes& live) {
  const size_t pixels = size_t{width} * height;
  Bytes output(pixels * 2);
  for (size_t i = 0; i < output.size(); ++i) {
    const size_t pixel = i % 2 == 0 ? i / 2 : i / 4 * 2;  // chroma goes by the even pixel
    output[i] = Blend(background.at(i), live.at(i), background.at(pixels * 2 + pixel));
  }
  return output;
}

Bytes ScaleBackground(const Bytes& record, uint32_t width, int32_t height, Bytes destination) {
  const auto signedWidth = static_cast<int32_t>(width);
  if (signedWidth < 2 || height <= 0) return destination;
  const int64_t frameBytes = int64_t{signedWidth} * height * 2;
  if (frameBytes > INT32_MAX) return destination;
  const Bytes plane(record.begin() + kRecordFrameBytes, record.end());
  // The rows of an odd width are one pixel longer: their end is overwritten by the alpha plane.
  const Bytes frame =
      CropScaleYuv16Bilinear(record, kWidth, kHeight, signedWidth, height, {0, 0, kWidth, kHeight});
  const Bytes alpha = ScalePlaneBilinear(plane, kWidth, kHeight, signedWidth, height);
  std::copy(frame.begin(), frame.end(), destination.begin());
  std::copy(alpha.begin(), alpha.end(), destination.begin() + frameBytes);
  return destination;
}

size_t ReadableBehindRecord(uint32_t width, int32_t height) {
  const auto lastOf = [](int64_t from, int64_t to) {  // the last neighbour that is read
    const int64_t step = from * 0x10000 / to;
    return to < 2 ? 0 : (((to - 2) * step) >> 16) + 1;
  };
  if (width < 2 || height < 2) return 0;
  const int64_t last = lastOf(kHeight, height) * kWidth + lastOf(kWidth, width);
  return static_cast<size_t>(std::max(int64_t{0}, last + 1 - kWidth * kHeight));
}

Bytes ResamplePicture(const Bytes& pixels, uint32_t stride, int32_t width, int32_t height,
                      int32_t pixelBytes) {
  const int64_t stepX = int64_t{width} * 0x10000 / kWidth;
  const int64_t stepY = int64_t{height} * 0x10000 / kHeight;
  Bytes target;
  for (int64_t row = 0; row < kHeight; ++row) {
    const int64_t y = row * stepY, y0 = y >> 16;
    const int64_t y1 = std::min<int64_t>(y0 + 1, height - 1);
    for (int64_t column = 0; column < kWidth; ++column) {
      const int64_t x = column * stepX, x0 = x >> 16;
      const int64_t x1 = std::min<int64_t>(x0 + 1, width - 1);
      for (int32_t channel = 0; channel < pixelBytes; ++channel) {
        const auto at = [&](int64_t sampleColumn, int64_t sampleRow) -> int64_t {
          return ByteAt(pixels, sampleRow * stride + sampleColumn * pixelBytes + channel);
        };
        const int64_t top = Between(at(x0, y0), at(x1, y0), x & 0xFFFF);
        const int64_t bottom = Between(at(x0, y1), at(x1, y1), x & 0xFFFF);
        target.push_back(static_cast<uint8_t>(Between(top, bottom, y & 0xFFFF)));
      }
    }
  }
  return target;
}

Bytes ConvertPicture(const Bytes& pixels, int32_t pixelBytes, bool topDown) {
  Bytes record(kRecordBytes);
  for (int64_t row = 0; row < kHeight; ++row) {
    const int64_t sourceRow = topDown ? row : kHeight - 1 - row;
    for (int64_t pair = 0; pair < kWidth / 2; ++pair) {
      int y[2], u[2], v[2];
      for (int64_t side = 0; side < 2; ++side) {
        const int64_t source = (sourceRow * kWidth + pair * 2 + side) * pixelBytes;
        const int b = ByteAt(pixels, source);
        const int g = ByteAt(pixels, source + 1);
        const int r = ByteAt(pixels, source + 2);
        y[side] = ((66 * r + 129 * g + 25 * b + 128) >> 8) + 16;
        u[side] = (112 * b - 74 * g - 38 * r + 128) >> 8;
        v[side] = (112 * r - 94 * g - 18 * b + 128) >> 8;
        const int64_t pixel = row * kWidth + pair * 2 + side;
        record[kRecordFrameBytes + pixel] = pixelBytes == 4 ? ByteAt(pixels, source + 3) : 255;
      }
      uint8_t* out = &record[(row * kWidth + pair * 2) * 2];
      out[0] = static_cast<uint8_t>(y[0]);
      out[1] = static_cast<uint8_t>((u[0] + u[1] + 256) >> 1);
      out[2] = static_cast<uint8_t>(y[1]);
      out[3] = static_cast<uint8_t>((v[0] + v[1] + 256) >> 1);
    }
  }
  return record;
}

Loaded LoadBitmap(const Bytes& file, const Bytes& before) {
  std::vector<std::string> lines;
  const auto failed = [&](int32_t status) { return Loaded{status, before, lines}; };

  const Read fileHeader = ReadAt(file, 0, 14);
  if (fileHeader.status != kSuccess) return failed(kUnsuccessful);
  if (LittleEndian(fileHeader.bytes, 0, 2) != 0x4D42) return failed(kUnsuccessful);
  const uint32_t pixelOffset = LittleEndian(fileHeader.bytes, 10, 4);

  const Bytes header = ReadAt(file, 14, 40).bytes;
  const auto width = static_cast<int32_t>(LittleEndian(header, 4, 4));
  const auto storedHeight = static_cast<int32_t>(LittleEndian(header, 8, 4));
  const uint32_t bits = LittleEndian(header, 14, 2);
  uint32_t imageBytes = LittleEndian(header, 20, 4);
  const uint32_t coloursUsed = LittleEndian(header, 32, 4);

  if (bits < 24 || LittleEndian(header, 0, 4) == 12) return failed(kUnsuccessful);
  if (imageBytes == 0) {
    const auto row = static_cast<int32_t>(bits * static_cast<uint32_t>(width) + 31);
    imageBytes = static_cast<uint32_t>((row >> 3) & ~3) * static_cast<uint32_t>(storedHeight);
  }
  const bool topDown = storedHeight < 0;
  if (topDown) lines.push_back("Kolm: ReadDIBFile 3, " + std::to_string(storedHeight) + "\n");
  const int64_t height = std::abs(int64_t{storedHeight});
  if (bits != 24 && bits != 32) return failed(kUnsuccessful);
  if (width <= 0 || height == 0 || height > INT32_MAX) return failed(kUnsuccessful);
  if (imageBytes == 0) return failed(kUnsuccessful);
  if (imageBytes > 1u << 30) return failed(kInsufficientResources);

  const uint32_t start = pixelOffset != 0 ? pixelOffset : coloursUsed * 4 + 54;
  const Read pixels = ReadAt(file, start, imageBytes);
  if (pixels.status != kSuccess) return failed(pixels.status);
  const auto pixelBytes = static_cast<int32_t>(bits / 8);
  if (width == kWidth && height == kHeight) {
    return {kSuccess, ConvertPicture(pixels.bytes, pixelBytes, topDown), lines};
  }
  const Bytes resampled = ResamplePicture(pixels.bytes, imageBytes / static_cast<uint32_t>(height),
                                          width, static_cast<int32_t>(height), pixelBytes);
  return {kSuccess, ConvertPicture(resampled, pixelBytes, topDown), lines};
}

Loaded LoadRecord(const Bytes& store, uint32_t index, const Bytes& before) {
  Loaded loaded = {kSuccess, before, {}};
  const auto offset = static_cast<int32_t>(index * 921600u - 921600u);
  if (offset >= static_cast<int64_t>(store.size())) return loaded;
  const Read read = ReadAt(store, offset, kRecordBytes);
  if (read.status != kSuccess) loaded.lines.push_back("FileRead : Error");
  std::copy(read.bytes.begin(), read.bytes.end(), loaded.record.begin());
  return loaded;
}

}  // namespace kolm::reference
