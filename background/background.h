// Background replacement behind its exports. The contracts stand in module/kolm.h.
#pragma once

#include "module/kolm.h"

namespace kolm {

int32_t LoadBackground(uint32_t recordIndex, uint8_t* record);
void ScaleBackground(const uint8_t* record, uint8_t* destination, uint32_t width, int32_t height);
void BlendBackground(uint32_t width, uint32_t height, const uint8_t* background,
                     const uint8_t* live, uint8_t* output);
int32_t LoadBitmapFile(const KolmPathCharacter* path, uint8_t* record);

}  // namespace kolm
