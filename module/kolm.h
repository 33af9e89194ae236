/* Kolm: post-processing of packed 4:2:2 YUV camera frames, called from a kernel-mode capture
 * driver. This header is the whole interface; it compiles alone as C11 and C++17.
 *
 * Terms
 *   Yuv16Frame   width * height * 2 bytes of packed 4:2:2 YUV (YUY2): rows of width * 2 bytes from
 *                top to bottom without padding, each pixel pair four bytes Y0, U, Y1, V. Widths are
 *                even. Colour is BT.601 limited range; effects paint black as 0, 128, 0, 128.
 *   level        the calling level (IRQL). PASSIVE is 0, DISPATCH is 2.
 *
 * Rules for every export
 *   - It writes one line to the kernel debugger, works on the caller's thread and returns when all
 *     is done.
 *   - Pointers need no alignment, but for a path's two bytes. Null pointers are not accepted
 *     unless said so.
 *   - Results are NTSTATUS values, 0 for success.
 *   - A buffer's size is the caller's word: the module cannot check it.
 *   - Calls may run at the same time on different threads, but for the face-tracking family.
 *
 * The module also exports DllInitialize and DllUnload, which the kernel's loader calls when the
 * first importing driver is loaded and the last one is gone, both at level PASSIVE. They only write
 * their debugger lines, allocate and free nothing and return 0. They are left out of the import
 * library, so that no client can bind to them; their declarations stand in module/entry.h.
 */
#ifndef KOLM_H
#define KOLM_H

#include <stddef.h>
#include <stdint.h>

/* May be defined as __declspec(dllimport) before this header to spare the import library's jump. */
#ifndef KOLM_API
#define KOLM_API
#endif

/* One 16-bit character of a path, UTF-16. With the compilers for Windows this is wchar_t. */
#if WCHAR_MAX > 0xFFFF
#ifndef __cplusplus
#include <uchar.h>
#endif
typedef char16_t KolmPathCharacter;
#else
#if !defined(__cplusplus)
#include <wchar.h>
#endif
typedef wchar_t KolmPathCharacter;
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Reads a source Yuv16Frame and writes the whole destination Yuv16Frame, each of
 * width * height * 2 bytes; the two must not overlap. Results beyond an effect's parameter range
 * and at awkward sizes are listed in docs/effects.md; in no case is a byte written outside the
 * destination (for an odd pixel count: outside the pair that it is rounded up to, so that such
 * frames need 2 spare bytes). Level: up to DISPATCH. */
typedef void (*EffectRoutine)(const uint8_t* source, uint8_t* destination, uint32_t width,
                              uint32_t height, uint32_t parameter);

enum {
  KOLM_EFFECT_FIRST = 1,
  KOLM_EFFECT_LAST = 18,
  KOLM_BACKGROUND_WIDTH = 640,
  KOLM_BACKGROUND_HEIGHT = 480
};

/* A stored background: 921600 bytes. frame is a 640 x 480 Yuv16Frame; alpha holds one byte a pixel,
 * rows from top to bottom: 255 where the background covers the live picture, 0 where the live
 * picture shows through. */
typedef struct BackgroundRecord {
  uint8_t frame[KOLM_BACKGROUND_WIDTH * KOLM_BACKGROUND_HEIGHT * 2];
  uint8_t alpha[KOLM_BACKGROUND_WIDTH * KOLM_BACKGROUND_HEIGHT];
} BackgroundRecord;

/* One face tracker, 104 bytes, owned by the caller, who fills it before the first
 * Kolm_FT_DoFaceTracking and keeps it from frame to frame. Sizes and positions are pixels of the
 * frame unless said otherwise. The caller may change any field between two frames.
 *
 * A natural start shows the whole frame: stepIndex = stepCount - 1, missCount = 0, crop and target
 * 0, 0, frameWidth, frameHeight. Frames are then plain copies until a face comes. (A stepIndex of 0
 * would first spend stepCount - 1 frames on a move to where the crop is already.) */
typedef struct FaceTracker {
  uint32_t frameWidth;  /* of srcFrame and dstFrame; even, 2 to 32766 */
  uint32_t frameHeight; /* of srcFrame and dstFrame; 1 to 32767 */
  int32_t detectWidth;  /* of the reduced picture in which faces are looked for; as given to Init */
  int32_t detectHeight; /* as given to Init */
  uint32_t scaleFactorMilli; /* step between the sizes of faces looked for, in thousandths: 1100 is
                                10 percent; 1000 and less find no face, nor does what is so little
                                more that the detector's tables would get too large */
  uint32_t missCount; /* frames without a face since the crop settled; counts for resetWhenLost */
  uint32_t stepIndex; /* steps taken of the current move; stepCount - 1 and more is settled */
  int32_t stepCount;  /* frames over which the crop moves to a new target; 1 or more */
  /* The part of the frame now shown. It may start at -1: see Kolm_FT_DoFaceTracking. */
  int32_t cropX, cropY, cropWidth, cropHeight;
  /* The part being moved to. */
  int32_t targetX, targetY, targetWidth, targetHeight;
  int32_t resetWhenLost; /* not 0: back to the whole frame after more than stepCount settled frames
                            without a face; 0: the last part stays */
  const uint8_t* srcFrame; /* the camera's Yuv16Frame, frameWidth * frameHeight * 2 bytes */
  uint8_t* dstFrame;       /* the resulting Yuv16Frame, same size, not overlapping srcFrame */
  void* faceStorage;       /* handle: set by Init, cleared by Uninit */
  void* detectionImage;    /* handle: set by Init, cleared by Uninit */
} FaceTracker;

/* ---- Video effects: ids 1 to 18, each with at most one parameter. Level: up to DISPATCH. ---- */

/* Stores the routine of effectId at *routine, or null if there is no such effect. Returns 0.
 * Nothing is allocated; the routine stays valid until the module is unloaded. */
KOLM_API int32_t Kolm_VE_InitVideoEffect(uint32_t effectId, EffectRoutine* routine);

/* Stores the parameter range of effectId, both ends included. For an unknown id neither output is
 * written. Returns 0. */
KOLM_API int32_t Kolm_VE_GetParameterRange(uint32_t effectId, uint32_t* minimum, uint32_t* maximum);

/* Stores the suggested parameter of effectId; 0 for an unknown id. Returns 0. */
KOLM_API int32_t Kolm_VE_GetParameterDefault(uint32_t effectId, uint32_t* defaultValue);

/* Runs routine over one frame. source and destination are Yuv16Frames of width * height * 2 bytes
 * that do not overlap; width is even. parameter is passed on unchecked; effects without one ignore
 * it. routine must not be null: any function of the right shape may be passed and is called.
 * Work buffers are taken from non-paged pool and given back before the call returns; if there is
 * no memory, the destination is a copy of the source. Returns 0. */
KOLM_API int32_t Kolm_VE_RunVideoEffect(EffectRoutine routine, const uint8_t* source,
                                        uint8_t* destination, uint32_t width, uint32_t height,
                                        uint32_t parameter);

/* There is nothing to release: only the debugger line is written. Returns 0. */
KOLM_API int32_t Kolm_VE_UninitVideoEffect(void);

/* ---- Background replacement: load a record, scale it once to the stream's size, blend it with
 * every frame. docs/background.md tells layouts, rounding and bitmap files. ---- */

/* Reads record recordIndex (from 1) of the store \SystemRoot\system32\KolmBg.img into *record,
 * 921600 bytes. Level: PASSIVE. Nothing is allocated.
 *
 * Returns the failure of the open (for instance 0xC0000034, no such file, or 0xC0000043, in use),
 * and otherwise what closing the file gave, normally 0, even where nothing was read: a caller that
 * needs to know marks *record beforehand. Index 0, one past the end and 2332 to 4661 leave *record
 * as it was; still higher ones may read from the middle of a record. Of a record that runs past the
 * file's end only the part that is there is written. */
KOLM_API int32_t Kolm_BG_LoadBackground(uint32_t recordIndex, uint8_t* record);

/* Scales *record (921600 bytes) to width x height pixels into destination: a Yuv16Frame of
 * width * height * 2 bytes, directly followed by its alpha plane of width * height bytes. The two
 * buffers must not overlap. Level: up to DISPATCH. Nothing is allocated. Returns 0.
 *
 * Scaling up reads behind the record, and some of what stands there has weight in the alpha plane's
 * last rows and columns. 641 readable bytes, zeroed, are enough for every size. What is read at
 * most:
 *
 *                     height to 959    height from 960
 *   width to 1279     nothing          640 bytes
 *   width from 1280   1 byte           641 bytes
 *
 * (1 byte without weight for 1280 x 720, 641 bytes for 1920 x 1080.) An odd width makes rows of
 * width + 1 pixels, which do not fit what Kolm_BG_AlphaBlending expects; no byte behind destination
 * is written. Nothing is written if width is below 2, height is 0 or below, or the frame would be
 * 2 GB or more. */
KOLM_API int32_t Kolm_BG_ScaleBackground(const uint8_t* record, uint8_t* destination,
                                         uint32_t width, int32_t height);

/* Lays a scaled background (width * height * 3 bytes, as Kolm_BG_ScaleBackground makes it) over the
 * Yuv16Frame live into the Yuv16Frame output, each of width * height * 2 bytes; output may be live.
 * Every result is a 256th of the two weighted bytes' sum, the weights adding up to 255: where only
 * one has weight, one less than it, but for 0. An odd pixel count needs no spare bytes. If
 * width * height, taken as a signed 32-bit number, is 0 or below, nothing is read or written.
 * Level: any. Nothing is allocated. Returns 0. */
KOLM_API int32_t Kolm_BG_AlphaBlending(uint32_t width, uint32_t height, const uint8_t* background,
                                       const uint8_t* live, uint8_t* output);

/* Builds *record, 921600 bytes, from an uncompressed bitmap file of any size with 24 bits a pixel
 * (alpha becomes 255) or 32 (alpha is the fourth byte). path is zero-terminated and in the kernel's
 * object-name form, for instance "\\??\\C:\\room.bmp". The file is opened with the system's rights,
 * not with those of the caller's user. Level: PASSIVE. Work buffers are taken from non-paged pool
 * and given back before the call returns.
 *
 * On a failure *record is as it was. Returns
 *   0            the record is made
 *   0xC0000001   no bitmap, one of another kind, or one of a size that cannot be
 *   0xC000009A   no memory for the pixels
 *   0xC0000106   path has more than 32766 characters
 *   another      the failure of the open, or of the read of the pixels (0xC0000011: the file ends
 *                before them) */
KOLM_API int32_t Kolm_BG_LoadFromFile(const KolmPathCharacter* path, uint8_t* record);

/* ---- Face tracking: a picture of the frame's size that shows the faces enlarged and moves with
 * them. One Init for each tracker, one Do for each frame, one Uninit for each Init.
 * docs/face-tracking.md tells how the crop behaves. No two calls of this family may run at the same
 * time, not even for different trackers: all share one detector. Level: PASSIVE. ---- */

/* Creates a tracker's resources for a detection picture of width x height pixels and stores their
 * handles at *storage and *image, the caller's FaceTracker fields faceStorage and detectionImage;
 * what these held before is overwritten. A width that is a multiple of 4 keeps the picture upright:
 * at any other the detector sees it skewed. Returns 0.
 *
 * The first tracker also builds the detector that all share, and so does each later Init while it
 * is missing. Memory is taken from non-paged pool: width * height * 3 bytes and up to 64 KB for the
 * results, for each tracker, and about 2 MB for the detector and its work buffers with pictures of
 * 160 x 120, more with larger ones. Where there is none, the handle is null, and so is image for a
 * size of 0, or if height rows of width * 3 + 3 bytes are more than 2147483647 bytes; the tracker
 * counts all the same, and needs its Uninit. */
KOLM_API int32_t Kolm_FT_InitFaceTracking(uint32_t width, uint32_t height, void** storage,
                                          void** image);

/* Processes one frame: reads tracker->srcFrame, writes tracker->dstFrame, moves the tracker's crop,
 * target and counters. logValue is only printed. Returns 0.
 *
 * Nothing is written, in the frame or the record, if tracker->detectionImage is null or there is no
 * detector. No face is found if faceStorage is null, if there is no memory, if detectWidth or
 * detectHeight is 0 or below or their picture, 2 bytes a pixel and rows of an even width, is larger
 * than the image that Init made (height rows of width * 3 bytes, each padded to a multiple of 4). A
 * smaller one is looked at together with what earlier frames left in the image.
 *
 * No byte outside srcFrame is read: where the crop leaves the frame, by one pixel in ordinary use,
 * the nearest pixels are shown (docs/scaling.md). Any numbers in the record are safe as long as
 * the two frames are as large as it says: results wrap at 32 bits, a division by 0 gives 0 (a
 * stepCount of 0 never gets anywhere). A frameWidth or frameHeight of 0, or of 2147483648 and more,
 * writes no frame. An odd frameWidth makes rows of frameWidth + 1 pixels wherever the frame is
 * scaled, for which dstFrame needs room; a frame below 4 bytes is copied, but never scaled. */
KOLM_API int32_t Kolm_FT_DoFaceTracking(uint32_t logValue, FaceTracker* tracker);

/* Releases what Init stored at *storage and *image (null is fine) and sets both to null. With the
 * last tracker, when there have been as many of these calls as Inits, the detector is released, and
 * all other memory of the family is given back unless a storage or an image that Init made is still
 * held: then with the last of these. The next Init starts anew. Returns 0. */
KOLM_API int32_t Kolm_FT_UninitFaceTracking(void** storage, void** image);

#ifdef __cplusplus
}
#endif

#endif
