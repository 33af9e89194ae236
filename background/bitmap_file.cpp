// Bitmap files made into background records. Nothing that a file says is believed: sizes are
// checked and each byte is looked for in what was really read.
#include "background/background.h"
#include "background/bitmap_conversion.h"
#include "background/file.h"
#include "module/memory.h"
#include "platform/kernel_calls.h"

namespace kolm {
namespace {

constexpr uint32_t kPoolTag = 'W' | 'd' << 8 | 'm' << 16 | uint32_t{' '} << 24;

// The published headers, of which only these fields are used.
struct __attribute__((packed)) BitmapFileHeader {
  uint16_t bfType;
  uint32_t bfSize;
  uint16_t bfReserved1;
  uint16_t bfReserved2;
  uint32_t bfOffBits;
};
static_assert(sizeof(BitmapFileHeader) == 14);

struct BitmapInfoHeader {
  uint32_t biSize;
  int32_t biWidth;
  int32_t biHeight;
  uint16_t biPlanes;
  uint16_t biBitCount;
  uint32_t biCompression;
  uint32_t biSizeImage;
  int32_t biXPelsPerMeter;
  int32_t biYPelsPerMeter;
  uint32_t biClrUsed;
  uint32_t biClrImportant;
};
static_assert(sizeof(BitmapInfoHeader) == 40);

constexpr uint16_t kBitmapType = 0x4D42;  // "BM"
constexpr uint32_t kCoreHeaderBytes = 12;
constexpr uint32_t kHeaderBytes = sizeof(BitmapFileHeader) + sizeof(BitmapInfoHeader);

void* Allocate(size_t bytes) { return ExAllocatePoolWithTag(kNonPagedPool, bytes, kPoolTag); }

// The bytes of the pixel data where the header leaves them out, from the height as it is stored:
// for rows from top to bottom a negative number.
uint32_t ImageBytes(const BitmapInfoHeader& info) {
  const uint32_t bits = info.biBitCount * static_cast<uint32_t>(info.biWidth) + 31;
  const uint32_t rowBytes = static_cast<uint32_t>(static_cast<int32_t>(bits) >> 3) & ~3u;
  return rowBytes * static_cast<uint32_t>(info.biHeight);
}

// Brings a picture to 640 x 480 and converts it. Only where it has that size already and all its
// bytes are there, it is converted as it lies.
int32_t MakeRecord(const StoredPicture& picture, RowOrder order, uint8_t* record) {
  constexpr uint32_t kPixels = KOLM_BACKGROUND_WIDTH * KOLM_BACKGROUND_HEIGHT;
  const size_t bytes = size_t{kPixels} * static_cast<size_t>(picture.pixelBytes);
  const bool fits =
      picture.width == KOLM_BACKGROUND_WIDTH && picture.height == KOLM_BACKGROUND_HEIGHT;
  if (fits && picture.bytes >= bytes) {
    ConvertPicture(picture.pixels, picture.pixelBytes, order, record);
    return kStatusSuccess;
  }
  uint8_t* resampled = static_cast<uint8_t*>(Allocate(bytes));
  if (resampled == nullptr) return kStatusInsufficientResources;
  if (fits) {
    KolmZero(resampled, bytes);
    KolmCopy(resampled, picture.pixels, picture.bytes);
  } else {
    ResamplePicture(picture, resampled);
  }
  ConvertPicture(resampled, picture.pixelBytes, order, record);
  ExFreePool(resampled);
  return kStatusSuccess;
}

int32_t ReadDIBFile(void* file, uint8_t* record) {
  int64_t endOfFile = 0;
  QueryEndOfFile(file, &endOfFile);

  uint32_t transferred = 0;
  BitmapFileHeader header = {};
  if (!Succeeded(ReadFile(file, 0, &header, sizeof header, &transferred)) ||
      header.bfType != kBitmapType) {
    return kStatusUnsuccessful;
  }
  // What a short file leaves out reads as 0, which the checks refuse.
  BitmapInfoHeader info = {};
  ReadFile(file, sizeof header, &info, sizeof info, &transferred);
  if (info.biBitCount < 24 || info.biSize == kCoreHeaderBytes) return kStatusUnsuccessful;

  const uint32_t imageBytes = info.biSizeImage != 0 ? info.biSizeImage : ImageBytes(info);
  RowOrder order = RowOrder::BottomUp;
  int32_t height = info.biHeight;
  if (info.biHeight < 0) {
    DbgPrint("Kolm: ReadDIBFile 3, %d\n", info.biHeight);
    order = RowOrder::TopDown;
    if (info.biHeight == INT32_MIN) return kStatusUnsuccessful;
    height = -info.biHeight;
  }
  if (info.biBitCount != 24 && info.biBitCount != 32) return kStatusUnsuccessful;
  if (info.biWidth <= 0 || height == 0 || imageBytes == 0) return kStatusUnsuccessful;

  uint8_t* pixels = static_cast<uint8_t*>(Allocate(imageBytes));
  if (pixels == nullptr) return kStatusInsufficientResources;
  const uint32_t offset =
      header.bfOffBits != 0 ? header.bfOffBits : info.biClrUsed * 4 + kHeaderBytes;
  int32_t status = ReadFile(file, offset, pixels, imageBytes, &transferred);
  if (Succeeded(status)) {
    const StoredPicture picture = {
        .pixels = pixels,
        .bytes = transferred,
        .stride = imageBytes / static_cast<uint32_t>(height),
        .width = info.biWidth,
        .height = height,
        .pixelBytes = info.biBitCount / 8,
    };
    const int32_t made = MakeRecord(picture, order, record);
    if (!Succeeded(made)) status = made;
  }
  ExFreePool(pixels);
  return status;
}

}  // namespace

int32_t LoadBitmapFile(const KolmPathCharacter* path, uint8_t* record) {
  void* file = nullptr;
  const int32_t opened = OpenFile(reinterpret_cast<const char16_t*>(path), &file);
  if (file == nullptr) return opened;
  const int32_t status = ReadDIBFile(file, record);
  ZwClose(file);
  return status;
}

}  // namespace kolm
