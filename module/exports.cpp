// The exported functions: each writes its debugger line first, then hands over to its family.
#include "background/background.h"
#include "effects/effect_table.h"
#include "facetrack/face_tracking.h"
#include "module/kolm.h"
#include "platform/kernel_calls.h"

int32_t Kolm_VE_InitVideoEffect(uint32_t effectId, EffectRoutine* routine) {
  DbgPrint("Kolm: Kolm_VE_InitVideoEffect\n");
  *routine = kolm::FindEffectRoutine(effectId);
  return 0;
}

int32_t Kolm_VE_GetParameterRange(uint32_t effectId, uint32_t* minimum, uint32_t* maximum) {
  DbgPrint("Kolm: Kolm_VE_GetParameterRange\n");
  kolm::FindParameterRange(effectId, minimum, maximum);
  return 0;
}

int32_t Kolm_VE_GetParameterDefault(uint32_t effectId, uint32_t* defaultValue) {
  DbgPrint("Kolm: Kolm_VE_GetParameterDefault\n");
  kolm::FindParameterDefault(effectId, defaultValue);
  return 0;
}

int32_t Kolm_VE_RunVideoEffect(EffectRoutine routine, const uint8_t* source, uint8_t* destination,
                               uint32_t width, uint32_t height, uint32_t parameter) {
  // %x shows the low 32 bits of the pointer.
  DbgPrint("Kolm: Kolm_VE_RunVideoEffect, %x\n",
           static_cast<uint32_t>(reinterpret_cast<uintptr_t>(routine)));
  routine(source, destination, width, height, parameter);
  return 0;
}

int32_t Kolm_VE_UninitVideoEffect() {
  DbgPrint("Kolm: Kolm_VE_UninitVideoEffect\n");
  return 0;
}

int32_t Kolm_BG_LoadBackground(uint32_t recordIndex, uint8_t* record) {
  DbgPrint("Kolm: Kolm_BG_LoadBackground\n");
  return kolm::LoadBackground(recordIndex, record);
}

int32_t Kolm_BG_ScaleBackground(const uint8_t* record, uint8_t* destination, uint32_t width,
                                int32_t height) {
  DbgPrint("Kolm: Kolm_BG_ScaleBackground\n");
  kolm::ScaleBackground(record, destination, width, height);
  return 0;
}

int32_t Kolm_BG_AlphaBlending(uint32_t width, uint32_t height, const uint8_t* background,
                              const uint8_t* live, uint8_t* output) {
  // The line's spelling is what log readers look for; it differs from the export's name.
  DbgPrint("Kolm: Kolm_BG_AlphaBlenging\n");
  kolm::BlendBackground(width, height, background, live, output);
  return 0;
}

int32_t Kolm_BG_LoadFromFile(const KolmPathCharacter* path, uint8_t* record) {
  // A narrow conversion of a wide path: the line shows the path up to its first zero byte.
  DbgPrint("Kolm: Kolm_BG_LoadFromFile, %s\n", reinterpret_cast<const char*>(path));
  return kolm::LoadBitmapFile(path, record);
}

int32_t Kolm_FT_InitFaceTracking(uint32_t width, uint32_t height, void** storage, void** image) {
  DbgPrint("Kolm: Kolm_FT_InitFaceTracking\n");
  kolm::InitFaceTracking(width, height, storage, image);
  return 0;
}

int32_t Kolm_FT_DoFaceTracking(uint32_t logValue, FaceTracker* tracker) {
  DbgPrint("Kolm: Kolm_FT_DoFaceTracking, %d\n", static_cast<int32_t>(logValue));
  kolm::DoFaceTracking(tracker);
  return 0;
}

int32_t Kolm_FT_UninitFaceTracking(void** storage, void** image) {
  DbgPrint("Kolm: Kolm_FT_UninitFaceTracking\n");
  kolm::UninitFaceTracking(storage, image);
  return 0;
}
