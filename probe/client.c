/* How a capture driver calls Kolm. The probe's driver and the host program share this file, so that
 * both make the same calls. */
#include "probe/client.h"

static void LookUp(const ClientRequest* request, ClientReply* reply) {
  EffectRoutine routine = NULL;
  uint32_t* values = reply->values;

  /* For an unknown effect the range stays as it was. */
  values[0] = values[1] = values[2] = 0xAAAAAAAA;
  reply->results[0] = Kolm_VE_GetParameterRange(request->effectId, &values[0], &values[1]);
  reply->results[1] = Kolm_VE_GetParameterDefault(request->effectId, &values[2]);
  reply->results[2] = Kolm_VE_InitVideoEffect(request->effectId, &routine);
  reply->results[3] = Kolm_VE_UninitVideoEffect();
  reply->routine = (uint64_t)(uintptr_t)routine;
}

static void Run(const ClientRequest* request, const uint8_t* source, ClientReply* reply,
                uint8_t* destination) {
  EffectRoutine routine = NULL;

  reply->results[0] = Kolm_VE_InitVideoEffect(request->effectId, &routine);
  reply->routine = (uint64_t)(uintptr_t)routine;
  if (routine != NULL) {
    reply->results[1] = Kolm_VE_RunVideoEffect(routine, source, destination, request->width,
                                               request->height, request->parameter);
  }
  reply->results[2] = Kolm_VE_UninitVideoEffect();
}

/* Where nothing is read, the source comes back. */
static void LoadRecord(const ClientRequest* request, const uint8_t* source, ClientReply* reply,
                       uint8_t* destination) {
  *(BackgroundRecord*)destination = *(const BackgroundRecord*)source;
  reply->results[0] = Kolm_BG_LoadBackground(request->parameter, destination);
}

static void LoadBitmap(const uint8_t* source, ClientReply* reply, uint8_t* destination) {
  *(BackgroundRecord*)destination = *(const BackgroundRecord*)source;
  reply->results[0] = Kolm_BG_LoadFromFile((const KolmPathCharacter*)source, destination);
}

static void Overlay(const ClientRequest* request, const uint8_t* source, ClientReply* reply,
                    uint8_t* destination) {
  uint8_t* blended = destination + (size_t)request->width * request->height * 3;

  reply->results[0] =
      Kolm_BG_ScaleBackground(source, destination, request->width, (int32_t)request->height);
  reply->results[1] = Kolm_BG_AlphaBlending(request->width, request->height, destination,
                                            source + kClientOverlayHead, blended);
}

static void TrackFace(const ClientRequest* request, const uint8_t* source, ClientReply* reply,
                      uint8_t* destination) {
  FaceTracker tracker = {.frameWidth = request->width,
                         .frameHeight = request->height,
                         .detectWidth = 160,
                         .detectHeight = 120,
                         .scaleFactorMilli = 1100,
                         .stepIndex = 9,
                         .stepCount = 10,
                         .cropWidth = (int32_t)request->width,
                         .cropHeight = (int32_t)request->height,
                         .targetWidth = (int32_t)request->width,
                         .targetHeight = (int32_t)request->height,
                         .srcFrame = source};

  tracker.dstFrame = destination;
  reply->results[0] =
      Kolm_FT_InitFaceTracking(160, 120, &tracker.faceStorage, &tracker.detectionImage);
  reply->values[0] = tracker.faceStorage != NULL;
  reply->values[1] = tracker.detectionImage != NULL;
  reply->results[1] = Kolm_FT_DoFaceTracking(7, &tracker);
  reply->results[2] = Kolm_FT_UninitFaceTracking(&tracker.faceStorage, &tracker.detectionImage);
  reply->values[2] = tracker.faceStorage != NULL;
  reply->values[3] = tracker.detectionImage != NULL;
}

void CallKolm(const ClientRequest* request, const uint8_t* source, ClientReply* reply,
              uint8_t* destination) {
  switch (request->operation) {
    case kClientLookUp:
      LookUp(request, reply);
      break;
    case kClientRun:
      Run(request, source, reply, destination);
      break;
    case kClientLoadRecord:
      LoadRecord(request, source, reply, destination);
      break;
    case kClientLoadBitmap:
      LoadBitmap(source, reply, destination);
      break;
    case kClientOverlay:
      Overlay(request, source, reply, destination);
      break;
    case kClientFaceTracking:
      TrackFace(request, source, reply, destination);
      break;
    default:
      break;
  }
}
