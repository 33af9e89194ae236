// Preloaded into the tool by a test: a V4L2 camera /dev/video7 of 64 x 48 packed pixels, each of
// whose frames holds one value, 16 more than its number. After FAKE_CAMERA_FRAMES frames it goes
// away, or with FAKE_CAMERA_STAYS has no more.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

enum { kBytes = 64 * 48 * 2, kBuffers = 4, kPlace = 8192 };

static int camera = -1;
static int queued[kBuffers], first, waiting, delivered;

static int OpenFile(const char* call, const char* path, int flags, int mode) {
  if (strcmp(path, "/dev/video7") != 0) {
    int (*next)(const char*, int, ...) =
        reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, call));
    return next(path, flags, mode);
  }
  camera = memfd_create("camera", 0);
  if (ftruncate(camera, (off_t)kPlace * kBuffers) != 0) abort();
  return camera;
}

static int ModeOf(int flags, va_list list) {
  return (flags & O_CREAT) != 0 ? va_arg(list, int) : 0;
}

// Under the names that the tool's libraries call.
extern "C" {
int OpenFirst(const char* path, int flags, ...) __asm__("open");
int OpenSecond(const char* path, int flags, ...) __asm__("open64");
int Control(int file, unsigned long request, ...) __asm__("ioctl");
}

int OpenFirst(const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const int mode = ModeOf(flags, list);
  va_end(list);
  return OpenFile("open", path, flags, mode);
}

int OpenSecond(const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const int mode = ModeOf(flags, list);
  va_end(list);
  return OpenFile("open64", path, flags, mode);
}

static int Fail(int error) {
  errno = error;
  return -1;
}

static int FrameCount() {
  const char* count = getenv("FAKE_CAMERA_FRAMES");
  return count == nullptr ? 0 : atoi(count);
}

static int NextFrame(struct v4l2_buffer* buffer) {
  unsigned char frame[kBytes];
  if (delivered >= FrameCount()) {
    return Fail(getenv("FAKE_CAMERA_STAYS") != nullptr ? EAGAIN : ENODEV);
  }
  if (waiting == 0) return Fail(EAGAIN);
  buffer->index = queued[first];
  first = (first + 1) % kBuffers;
  --waiting;
  memset(frame, 16 + delivered, sizeof frame);
  if (pwrite(camera, frame, sizeof frame, (off_t)buffer->index * kPlace) != kBytes) abort();
  buffer->bytesused = kBytes;
  buffer->flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
  buffer->timestamp.tv_sec = 1 + delivered / 30;
  buffer->timestamp.tv_usec = delivered % 30 * 33333;
  ++delivered;
  return 0;
}

int Control(int file, unsigned long request, ...) {
  va_list list;
  va_start(list, request);
  void* argument = va_arg(list, void*);
  va_end(list);
  if (file != camera || camera < 0) {
    int (*next)(int, unsigned long, ...) =
        reinterpret_cast<int (*)(int, unsigned long, ...)>(dlsym(RTLD_NEXT, "ioctl"));
    return next(file, request, argument);
  }
  // libavdevice passes some requests through an int.
  switch (static_cast<unsigned>(request)) {
    case static_cast<unsigned>(VIDIOC_QUERYCAP): {
      auto* capability = static_cast<v4l2_capability*>(argument);
      memset(capability, 0, sizeof *capability);
      capability->capabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
      return 0;
    }
    case static_cast<unsigned>(VIDIOC_G_FMT):
    case static_cast<unsigned>(VIDIOC_S_FMT): {
      auto* format = static_cast<v4l2_format*>(argument);
      format->fmt.pix.width = 64;
      format->fmt.pix.height = 48;
      format->fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
      format->fmt.pix.field = V4L2_FIELD_NONE;
      format->fmt.pix.bytesperline = 128;
      format->fmt.pix.sizeimage = kBytes;
      return 0;
    }
    case static_cast<unsigned>(VIDIOC_G_PARM):
    case static_cast<unsigned>(VIDIOC_S_PARM): {
      auto* parameters = static_cast<v4l2_streamparm*>(argument);
      parameters->parm.capture.capability = V4L2_CAP_TIMEPERFRAME;
      parameters->parm.capture.timeperframe.numerator = 1;
      parameters->parm.capture.timeperframe.denominator = 30;
      return 0;
    }
    case static_cast<unsigned>(VIDIOC_REQBUFS):
      static_cast<v4l2_requestbuffers*>(argument)->count = kBuffers;
      return 0;
    case static_cast<unsigned>(VIDIOC_QUERYBUF): {
      auto* buffer = static_cast<v4l2_buffer*>(argument);
      buffer->length = kBytes;
      buffer->m.offset = buffer->index * kPlace;
      return 0;
    }
    case static_cast<unsigned>(VIDIOC_QBUF):
      queued[(first + waiting++) % kBuffers] = (int)static_cast<v4l2_buffer*>(argument)->index;
      return 0;
    case static_cast<unsigned>(VIDIOC_DQBUF):
      return NextFrame(static_cast<v4l2_buffer*>(argument));
    case static_cast<unsigned>(VIDIOC_STREAMON):
    case static_cast<unsigned>(VIDIOC_STREAMOFF):
    case static_cast<unsigned>(VIDIOC_S_INPUT):
      return 0;
    case static_cast<unsigned>(VIDIOC_ENUMINPUT):
      memset(argument, 0, sizeof(struct v4l2_input));
      return 0;
    case static_cast<unsigned>(VIDIOC_G_INPUT):
      *static_cast<int*>(argument) = 0;
      return 0;
    default:
      return Fail(EINVAL);
  }
}
