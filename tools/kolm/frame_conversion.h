// Between the frames of decoders, cameras and encoders and those of the module.
#pragma once

#include <memory>

#include "tools/kolm/media.h"

struct SwsContext;

namespace kolm {

// Converts by libswscale with the colour spaces and ranges that the frames carry; what carries no
// colour space is BT.601. Keeps its tables as long as the shapes stay. Throws Failure.
class FrameConverter {
 public:
  FrameConverter();
  ~FrameConverter();

  // Scales if the sizes differ.
  void Convert(const AVFrame& source, AVFrame& destination);

 private:
  struct Shape;
  std::unique_ptr<Shape> shape_;
  SwsContext* context_ = nullptr;
};

// Makes packed frames of one size.
class PackedConverter {
 public:
  PackedConverter(int width, int height);

  // Frames that are packed already come back as they are, others as new ones: rows unpadded, a last
  // odd column cut off, other sizes scaled.
  FramePointer Convert(FramePointer frame);

  // An empty packed frame.
  FramePointer NewPacked() const { return packed_.Get(); }

 private:
  int width_, height_;
  FramePool packed_, padded_;
  FrameConverter converter_;
};

// Makes an encoder's frames of packed ones.
class EncoderConverter {
 public:
  EncoderConverter(int width, int height, AVPixelFormat format, bool fullRange);

  FramePointer Convert(FramePointer packed);

 private:
  AVPixelFormat format_;
  bool fullRange_;
  FramePool result_, padded_;
  FrameConverter converter_;
};

// Of formats without a YUV matrix: red, green and blue, or grey levels in colour tables.
bool IsRgb(AVPixelFormat format);

}  // namespace kolm
