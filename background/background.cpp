// Not available yet: the loaders say so, the others leave their outputs untouched.
#include "background/background.h"

namespace kolm {
namespace {

constexpr int32_t kStatusNotImplemented = static_cast<int32_t>(0xC0000002);

}  // namespace

int32_t LoadBackground(uint32_t, uint8_t*) { return kStatusNotImplemented; }

void ScaleBackground(const uint8_t*, uint8_t*, uint32_t, int32_t) {}

void BlendBackground(uint32_t, uint32_t, const uint8_t*, const uint8_t*, uint8_t*) {}

int32_t LoadBitmapFile(const KolmPathCharacter*, uint8_t*) { return kStatusNotImplemented; }

}  // namespace kolm
