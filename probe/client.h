/* Requests to the client: what travels from the console program to the driver and back. Each
 * structure is followed by a frame of width * height * 2 bytes (none where either is 0). */
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
  kClientLookUp,      /* range, default and routine of effectId */
  kClientRun,         /* effectId over the frame */
  kClientBackground,  /* all background exports; the frame, 640 x 720, is a record's bytes */
  kClientFaceTracking /* all face-tracking exports over the frame */
};

typedef struct ClientRequest {
  uint32_t operation;
  uint32_t effectId;
  uint32_t width;
  uint32_t height;
  uint32_t parameter;
} ClientRequest;

typedef struct ClientReply {
  int32_t results[4];
  uint32_t values[4];
  uint64_t routine;   /* as Kolm_VE_InitVideoEffect returned it */
  char imageName[16]; /* of the load check */
} ClientReply;

/* Answers the operations from kClientLookUp on. *reply and the frame at destination must be zeroed;
 * source and destination hold width * height * 2 bytes each. */
void CallKolm(const ClientRequest* request, const uint8_t* source, ClientReply* reply,
              uint8_t* destination);

#ifdef __cplusplus
}
#endif

#endif
