/* module/kolm.h and nothing before it: compiled as C11 and as C++17 by every compiler that a client
 * may use. */
// clang-format off
#include "module/kolm.h"
#include <assert.h>
// clang-format on

static_assert(sizeof(BackgroundRecord) == 921600, "BackgroundRecord");
static_assert(offsetof(BackgroundRecord, alpha) == 614400, "BackgroundRecord.alpha");
static_assert(sizeof(FaceTracker) == 104, "FaceTracker");
static_assert(offsetof(FaceTracker, cropX) == 32, "FaceTracker.cropX");
static_assert(offsetof(FaceTracker, srcFrame) == 72, "FaceTracker.srcFrame");
static_assert(sizeof(KolmPathCharacter) == 2, "KolmPathCharacter");
