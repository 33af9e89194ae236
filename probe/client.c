/* How a capture driver calls Kolm. The probe's driver and the host program share this file, so that
 * both make the same calls. */
#include "probe/client.h"

static void LookUp(const ClientRequest* request, ClientReply* reply) {
  EffectRoutine routine = NULL;
  uint32_t* values = reply->values;

  /* For an unknown effect the range stays as it was. */
  values[0] = values[1] = values[2] = 0xAAAAAAAA;
  reply->results[0] = Kolm_VE_GetParameterRange(request->item, &values[0], &values[1]);
  reply->results[1] = Kolm_VE_GetParameterDefault(request->item, &values[2]);
  reply->results[2] = Kolm_VE_InitVideoEffect(request->item, &routine);
  reply->results[3] = Kolm_VE_UninitVideoEffect();
  reply->routine = (uint64_t)(uintptr_t)routine;
}

static void Run(const ClientRequest* request, const uint8_t* source, ClientReply* reply,
                uint8_t* destination) {
  EffectRoutine routine = NULL;

  reply->results[0] = Kolm_VE_InitVideoEffect(request->item, &routine);
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

static FaceTracker trackers[2];

/* The whole frame is shown until a face is found. */
static void BeginTracking(uint32_t item, uint32_t width, uint32_t height, uint32_t detection,
                          ClientReply* reply) {
  FaceTracker* tracker = &trackers[item];

  *tracker = (FaceTracker){0};
  tracker->frameWidth = width;
  tracker->frameHeight = height;
  tracker->detectWidth = (int32_t)(detection >> 16);
  tracker->detectHeight = (int32_t)(detection & 0xFFFF);
  tracker->scaleFactorMilli = 1100;
  tracker->stepCount = 10;
  tracker->stepIndex = 9;
  tracker->cropWidth = tracker->targetWidth = (int32_t)width;
  tracker->cropHeight = tracker->targetHeight = (int32_t)height;
  tracker->resetWhenLost = 1;
  reply->results[0] =
      Kolm_FT_InitFaceTracking((uint32_t)tracker->detectWidth, (uint32_t)tracker->detectHeight,
                               &tracker->faceStorage, &tracker->detectionImage);
  reply->values[0] = tracker->faceStorage != NULL;
  reply->values[1] = tracker->detectionImage != NULL;
}

static void Track(const ClientRequest* request, const uint8_t* source, ClientReply* reply,
                  uint8_t* destination) {
  FaceTracker* tracker = &trackers[request->item];
  uint32_t repeat, i;

  tracker->srcFrame = source;
  tracker->dstFrame = destination;
  reply->results[0] = Kolm_FT_DoFaceTracking(request->item, tracker);
  for (repeat = 0; repeat < request->parameter; ++repeat) {
    reply->results[1] = Kolm_FT_DoFaceTracking(request->item, tracker);
  }
  for (i = 0; i < sizeof reply->tracker / sizeof reply->tracker[0]; ++i) {
    reply->tracker[i] = ((const int32_t*)tracker)[i];
  }
}

static void EndTracking(uint32_t item, ClientReply* reply) {
  FaceTracker* tracker = &trackers[item];

  reply->results[0] = Kolm_FT_UninitFaceTracking(&tracker->faceStorage, &tracker->detectionImage);
  reply->values[0] = tracker->faceStorage != NULL;
  reply->values[1] = tracker->detectionImage != NULL;
}

static void TrackInRounds(const ClientRequest* request, const uint8_t* source, ClientReply* reply,
                          uint8_t* destination) {
  ClientRequest frame = *request;
  uint32_t round, step, item;

  frame.parameter = 0;
  for (round = 0; round < request->parameter; ++round) {
    for (item = 0; item < request->item; ++item) {
      BeginTracking(item, request->width, request->height, 64 << 16 | 48, reply);
    }
    for (step = 0; step < 10; ++step) {
      for (frame.item = 0; frame.item < request->item; ++frame.item) {
        Track(&frame, source, reply, destination);
      }
    }
    for (item = 0; item < request->item; ++item) EndTracking(item, reply);
  }
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
    case kClientTrackBegin:
      BeginTracking(request->item, request->width, request->height, request->parameter, reply);
      break;
    case kClientTrack:
      Track(request, source, reply, destination);
      break;
    case kClientTrackEnd:
      EndTracking(request->item, reply);
      break;
    case kClientTrackRounds:
      TrackInRounds(request, source, reply, destination);
      break;
    default:
      break;
  }
}
