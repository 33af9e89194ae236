/* Requests to the client: what travels from the console program to the driver and back. Each
 * structure is followed by bytes: ClientSourceBytes behind a request, ClientDestinationBytes behind
 * its reply. */
#ifndef KOLM_PROBE_CLIENT_H
#define KOLM_PROBE_CLIENT_H

#include "module/kolm.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The one device control code: a request with its frame in, a reply with its frame out. */
#define CLIENT_CONTROL_CODE CTL_CODE(FILE_DEVICE_UNKNOWN, 0x800, METHOD_BUFFERED, FILE_ANY_ACCESS)

enum ClientOperation {
  kClientLoadCheck,   /* driver only: where the imports lead */
  kClientLoaded,      /* driver only: calls DllInitialize */
  kClientUnloading,   /* driver only: calls DllUnload */
  kClientLookUp,      /* range, default and routine of effect `item` */
  kClientRun,         /* effect `item` over the frame */
  kClientLoadRecord,  /* the store's record `parameter` into the frame, 640 x 720 */
  kClientLoadBitmap,  /* the same from the bitmap whose path the frame begins with */
  kClientOverlay,     /* a record scaled to the frame's size and blended over it */
  kClientTrackBegin,  /* creates tracker `item`, with a detection image of parameter / 65536 by
                         parameter % 65536 pixels */
  kClientTrack,       /* tracker `item` over the frame, and then parameter times more */
  kClientTrackEnd,    /* releases tracker `item` */
  kClientTrackRounds, /* parameter times: `item` trackers are created, see ten frames each, and are
                         released */
  kClientPool, /* driver only: the blocks that the module holds, and how many it has asked for */
  kClientPoolLimit, /* driver only: block number `parameter` from now on is refused, and each
                       behind it if `item` is 0; parameter 0 ends it */
  kClientStackLimit /* driver only: whether, by parameter, a deeper stack is refused */
};

typedef struct ClientRequest {
  uint32_t operation;
  uint32_t item; /* an effect's id; a tracker, 0 or 1 */
  uint32_t width;
  uint32_t height;
  uint32_t parameter;
} ClientRequest;

typedef struct ClientReply {
  int32_t results[4];
  uint32_t values[4];
  uint64_t routine;    /* as Kolm_VE_InitVideoEffect returned it */
  int32_t tracker[17]; /* the record up to its pointers, after the call */
  uint32_t stackBytes; /* driver only: as deep as a face-tracking call went */
  char imageName[16];  /* of the load check */
} ClientReply;

enum {
  /* Zeroed bytes behind a record that is to be scaled up. */
  kClientRecordMargin = 1024,
  kClientOverlayHead = sizeof(BackgroundRecord) + kClientRecordMargin
};

/* A frame; for an overlay the record with its margin and then the frame. */
static inline uint64_t ClientSourceBytes(const ClientRequest* request) {
  const uint64_t frame = (uint64_t)request->width * request->height * 2;
  return request->operation == kClientOverlay ? kClientOverlayHead + frame : frame;
}

/* A frame; for an overlay the scaled background and then the frame. */
static inline uint64_t ClientDestinationBytes(const ClientRequest* request) {
  const uint64_t pixels = (uint64_t)request->width * request->height;
  return pixels * (request->operation == kClientOverlay ? 5 : 2);
}

/* Answers the operations from kClientLookUp on. *reply and the bytes at destination must be zeroed;
 * source holds ClientSourceBytes, destination ClientDestinationBytes. */
void CallKolm(const ClientRequest* request, const uint8_t* source, ClientReply* reply,
              uint8_t* destination);

#ifdef __cplusplus
}
#endif

#endif
