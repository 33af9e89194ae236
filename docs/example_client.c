/* How a capture driver puts an effect on a stream of frames. */
#include "module/kolm.h"

/* What the driver keeps of a stream. Width is even; frames are packed 4:2:2 (YUY2) without padding
 * between rows. */
typedef struct CaptureStream {
  uint32_t width, height;
  EffectRoutine effect; /* null: frames pass as they are */
  uint32_t parameter;
} CaptureStream;

/* Once, when the user chooses an effect; 0 or any other unknown id chooses none. Level: up to
 * DISPATCH. */
void ChooseEffect(CaptureStream* stream, uint32_t effectId) {
  Kolm_VE_InitVideoEffect(effectId, &stream->effect);
  Kolm_VE_GetParameterDefault(effectId, &stream->parameter);
}

/* For each frame: camera holds it, output receives it. Each is width * height * 2 bytes, and they
 * do not overlap. Level: up to DISPATCH, where both must be non-paged memory. Returns 0 if output
 * was not written, since no effect is chosen. */
int ProcessFrame(const CaptureStream* stream, const uint8_t* camera, uint8_t* output) {
  if (stream->effect == NULL) return 0;
  Kolm_VE_RunVideoEffect(stream->effect, camera, output, stream->width, stream->height,
                         stream->parameter);
  return 1;
}
