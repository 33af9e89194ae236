// What a viewer sees: the picture goes to the faces, keeps to them as they move, and is left alone
// where nobody is.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <string>
#include <vector>

#include "module/kolm.h"
#include "platform/host/host_kernel.h"
#include "tests/drawn_face.h"

namespace kolm {
namespace {

using reference::Bytes;

constexpr int kSteps = 8;
constexpr int kMargin = 20;  // detection pixels

// A tracker whose detection picture is a quarter of its frames' size.
class Viewer {
 public:
  explicit Viewer(cv::Size size) : size_(size) {
    record_.frameWidth = static_cast<uint32_t>(size.width);
    record_.frameHeight = static_cast<uint32_t>(size.height);
    record_.detectWidth = size.width / 4;
    record_.detectHeight = size.height / 4;
    record_.scaleFactorMilli = 1100;
    record_.stepCount = kSteps;
    record_.stepIndex = kSteps - 1;
    record_.cropWidth = record_.targetWidth = size.width;
    record_.cropHeight = record_.targetHeight = size.height;
    record_.resetWhenLost = 1;
    host::SetDebugSink([this](const std::string& line) {
      cv::Rect box;
      if (std::sscanf(line.c_str(), "YUV16_Face 1........... %d, %d, %d, %d", &box.x, &box.y,
                      &box.width, &box.height) == 4 &&
          box.area() > 0) {
        box_ = box;
      }
    });
    Kolm_FT_InitFaceTracking(static_cast<uint32_t>(size.width / 4),
                             static_cast<uint32_t>(size.height / 4), &record_.faceStorage,
                             &record_.detectionImage);
  }
  ~Viewer() {
    Kolm_FT_UninitFaceTracking(&record_.faceStorage, &record_.detectionImage);
    host::SetDebugSink(nullptr);
    EXPECT_EQ(host::DescribePoolBlocks(), "");
  }
  Viewer(const Viewer&) = delete;
  Viewer& operator=(const Viewer&) = delete;

  void See(const Bytes& frame) {
    output_.assign(frame.size(), 0xA5);
    box_.reset();
    record_.srcFrame = frame.data();
    record_.dstFrame = output_.data();
    Kolm_FT_DoFaceTracking(0, &record_);
  }

  const std::optional<cv::Rect>& Box() const { return box_; }
  cv::Rect Crop() const {
    return {record_.cropX, record_.cropY, record_.cropWidth, record_.cropHeight};
  }
  cv::Rect Target() const {
    return {record_.targetX, record_.targetY, record_.targetWidth, record_.targetHeight};
  }
  const Bytes& Output() const { return output_; }
  cv::Size Size() const { return size_; }

 private:
  cv::Size size_;
  FaceTracker record_ = {};
  Bytes output_;
  std::optional<cv::Rect> box_;
};

cv::Point Centre(const cv::Rect& area) { return (area.tl() + area.br()) / 2; }

bool Contains(const cv::Rect& outer, const cv::Rect& inner) { return (outer & inner) == inner; }

// ---- The drawn face ----

const cv::Size kFrame(640, 480);

Bytes FrameWithFace(cv::Point centre, double radius) {
  Bytes frame = GreyFrame(kFrame.width, kFrame.height);
  DrawFace(&frame, kFrame.width, kFrame.height, centre.x, centre.y, radius);
  return frame;
}

TEST(FaceFollowing, FindsTheDrawnFaceWhereItIs) {
  for (const int radius : {52, 60, 80, 100}) {
    for (const cv::Point centre : {cv::Point(320, 240), cv::Point(250, 220), cv::Point(391, 258),
                                   cv::Point(277, 263), cv::Point(368, 217)}) {
      SCOPED_TRACE(testing::Message() << centre << ", radius " << radius);
      Viewer viewer(kFrame);
      viewer.See(FrameWithFace(centre, radius));
      ASSERT_TRUE(viewer.Box());
      EXPECT_NEAR(Centre(*viewer.Box()).x, centre.x, 8 + radius / 10.0);
      EXPECT_NEAR(Centre(*viewer.Box()).y, centre.y, 8 + radius / 5.0);
      EXPECT_NEAR(viewer.Box()->width - 2 * kMargin * 4, 2.3 * radius, 0.35 * radius + 8);
    }
  }
}

TEST(FaceFollowing, FindsTheDrawnFaceAtTheEdges) {
  for (const cv::Point centre : {cv::Point(90, 100), cv::Point(90, 380), cv::Point(550, 100),
                                 cv::Point(550, 380), cv::Point(320, 90), cv::Point(90, 240)}) {
    SCOPED_TRACE(centre);
    const int radius = 60;
    const cv::Rect face(centre.x - 40, centre.y - 50, 80, 100);
    Viewer viewer(kFrame);
    const Bytes frame = FrameWithFace(centre, radius);
    for (int i = 0; i < 10 * kSteps; ++i) viewer.See(frame);
    ASSERT_TRUE(viewer.Box());
    EXPECT_TRUE(Contains(*viewer.Box(), face)) << *viewer.Box();
    EXPECT_TRUE(Contains(cv::Rect({}, kFrame), *viewer.Box())) << *viewer.Box();
    EXPECT_TRUE(Contains(viewer.Crop(), face)) << viewer.Crop();
    EXPECT_LT(viewer.Crop().width, 460);
  }
}

TEST(FaceFollowing, TheCropGoesWithTheFace) {
  Viewer viewer(kFrame);
  const Bytes empty = GreyFrame(kFrame.width, kFrame.height);
  const auto centreAt = [](int frame) {
    const double turn = frame * 0.02;
    return cv::Point(cvRound(310 - 110 * std::cos(turn)), cvRound(240 + 40 * std::sin(2 * turn)));
  };
  int leftmost = kFrame.width, rightmost = 0;
  for (int i = 0; i < 320; ++i) {
    SCOPED_TRACE(i);
    const cv::Point centre = centreAt(i);
    viewer.See(FrameWithFace(centre, 60));
    EXPECT_TRUE(viewer.Box());
    if (i < 5 * kSteps) continue;
    const cv::Rect crop = viewer.Crop();
    leftmost = std::min(leftmost, Centre(crop).x);
    rightmost = std::max(rightmost, Centre(crop).x);
    EXPECT_TRUE(Contains(crop, cv::Rect(centre.x - 45, centre.y - 60, 90, 120))) << crop;
    // The frame's shape makes the crop wider than the box, to the right if there is room. The
    // distance is the way that the face makes in a few frames.
    const int middle = std::min(centre.x + crop.width / 8, kFrame.width - crop.width / 2);
    EXPECT_NEAR(Centre(crop).x, middle, 30);
    EXPECT_NEAR(Centre(crop).y, centre.y, 30);
    EXPECT_NEAR(crop.width, 400, 40);
  }
  EXPECT_GT(rightmost - leftmost, 150);

  // The face goes; the crop stays for a while and then opens.
  const cv::Rect last = viewer.Target();
  for (int i = 0; i < 2 * kSteps; ++i) {
    viewer.See(empty);
    EXPECT_FALSE(viewer.Box());
    if (i >= kSteps - 1 && i < 2 * kSteps - 2) {
      EXPECT_EQ(viewer.Crop(), last);
    }
  }
  for (int i = 0; i < kSteps; ++i) viewer.See(empty);
  const Bytes pattern = [&] {
    Bytes frame = empty;
    for (size_t i = 0; i < frame.size(); i += 2) frame[i] = static_cast<uint8_t>(90 + i / 2 % 4);
    return frame;
  }();
  viewer.See(pattern);
  EXPECT_EQ(viewer.Output(), pattern);

  // And comes back elsewhere.
  const cv::Point centre(200, 300);
  for (int i = 0; i < 6 * kSteps; ++i) viewer.See(FrameWithFace(centre, 70));
  EXPECT_TRUE(Contains(viewer.Crop(), cv::Rect(centre.x - 50, centre.y - 70, 100, 140)));
  EXPECT_LT(viewer.Crop().width, 460);
}

// ---- Photographs ----

// A picture before a camera that pans and zooms.
class Shot {
 public:
  Shot(const cv::Mat& picture, cv::Size frame) : picture_(picture), frame_(frame) {}

  // The frame's middle shows the picture's point `middle`, enlarged by `zoom`.
  Bytes Frame(cv::Point2d middle, double zoom) {
    toFrame_ = {zoom, 0,    frame_.width / 2.0 - middle.x * zoom,
                0,    zoom, frame_.height / 2.0 - middle.y * zoom};
    cv::Mat seen;
    cv::warpAffine(picture_, seen, toFrame_, frame_, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    Bytes frame(seen.total() * 2, 128);
    for (size_t i = 0; i < seen.total(); ++i) frame[2 * i] = seen.data[i];
    return frame;
  }

  // Where a part of the picture is in the last frame.
  cv::Rect InFrame(const cv::Rect& part) const {
    const auto at = [&](cv::Point point) {
      return cv::Point(cvRound(point.x * toFrame_(0, 0) + toFrame_(0, 2)),
                       cvRound(point.y * toFrame_(1, 1) + toFrame_(1, 2)));
    };
    return {at(part.tl()), at(part.br())};
  }

 private:
  cv::Mat picture_;
  cv::Size frame_;
  cv::Matx23d toFrame_;
};

cv::Mat ReadGrey(const std::string& path, const char* package) {
  cv::Mat picture = cv::imread(path, cv::IMREAD_GRAYSCALE);
  EXPECT_FALSE(picture.empty()) << path << " is in the Debian package " << package;
  return picture;
}

// Eyes, nose and mouth, in the photograph's pixels.
struct Portrait {
  cv::Mat picture;
  cv::Rect face;
};

std::vector<Portrait> Portraits() {
  return {{ReadGrey(KOLM_TEST_PHOTOGRAPH, "itself"), {238, 100, 92, 100}},
          {ReadGrey("/usr/share/matplotlib/mpl-data/sample_data/grace_hopper.jpg",
                    "python-matplotlib-data"),
           {190, 135, 160, 170}}};
}

cv::Mat Landscape(const std::string& name) {
  return ReadGrey("/usr/share/backgrounds/" + name + ".jpg", "lomiri-wallpapers-16.04");
}

// Pans and zooms, then keeps still: the crop has to hold all of `faces` from a few moves on, be
// near them and come to rest.
void ExpectToSettle(Viewer& viewer, const cv::Mat& picture, double zoom,
                    const std::vector<cv::Rect>& faces) {
  constexpr int kMoving = 50, kStill = 54;
  Shot shot(picture, viewer.Size());
  cv::Rect all = faces[0];
  for (const cv::Rect& face : faces) all |= face;
  cv::Rect rest;
  int missed = 0;
  for (int i = 0; i < kMoving + kStill; ++i) {
    SCOPED_TRACE(i);
    const double turn = 2 * CV_PI * std::min(i, kMoving) / kMoving;
    viewer.See(shot.Frame({picture.cols / 2.0 + 40 / zoom * std::sin(turn), picture.rows / 2.0},
                          zoom * (1 + 0.06 * std::sin(turn))));
    if (!viewer.Box()) ++missed;
    if (i < 4 * kSteps) continue;
    for (const cv::Rect& face : faces) {
      ASSERT_TRUE(Contains(viewer.Crop(), shot.InFrame(face))) << viewer.Crop();
    }
    if (i == kMoving + 44) rest = viewer.Crop();
    if (i > kMoving + 44) {
      ASSERT_EQ(viewer.Crop(), rest);
    }
  }
  EXPECT_LE(missed, 3);
  EXPECT_TRUE(viewer.Box());
  // The margins are 80 pixels; the detector's squares end outside eyes and mouth.
  const cv::Rect crop = viewer.Crop(), inFrame = shot.InFrame(all);
  EXPECT_LT(inFrame.x - crop.x, 170) << crop;
  EXPECT_LT(inFrame.y - crop.y, 170) << crop;
  EXPECT_LT(crop.width, viewer.Size().width * 9 / 10);
  for (const int side : {crop.x - viewer.Target().x, crop.y - viewer.Target().y,
                         crop.width - viewer.Target().width}) {
    EXPECT_LT(std::abs(side), kSteps);
  }
}

TEST(FaceFollowing, SettlesOnTheFaceOfAPhotograph) {
  for (const Portrait& portrait : Portraits()) {
    SCOPED_TRACE(portrait.face);
    Viewer viewer(kFrame);
    ExpectToSettle(viewer, portrait.picture, 480.0 / portrait.picture.rows, {portrait.face});
  }
}

// Portraits on a photograph of mountains; the faces are told in its pixels.
struct Group {
  cv::Mat picture;
  std::vector<cv::Rect> faces;
};

Group GroupOf(const std::vector<Portrait>& portraits) {
  Group group;
  cv::resize(Landscape("picosdeeuropa_by_Aitzol_Berasategi"), group.picture, {1280, 720}, 0, 0,
             cv::INTER_AREA);
  int left = 90;
  for (const Portrait& portrait : portraits) {
    cv::Mat reduced;
    const double scale = 420.0 / portrait.picture.rows;
    cv::resize(portrait.picture, reduced, {}, scale, scale, cv::INTER_AREA);
    const cv::Rect place(left, 135, reduced.cols, reduced.rows);
    reduced.copyTo(group.picture(place));
    const auto scaled = [&](int value) { return cvRound(value * scale); };
    group.faces.emplace_back(left + scaled(portrait.face.x), 135 + scaled(portrait.face.y),
                             scaled(portrait.face.width), scaled(portrait.face.height));
    left += 620;
  }
  return group;
}

TEST(FaceFollowing, ShowsTwoFaces) {
  const Group group = GroupOf(Portraits());
  Viewer viewer(group.picture.size());
  ExpectToSettle(viewer, group.picture, 1, group.faces);
}

// The detector lists the left face last here, and the box takes its width.
TEST(FaceFollowing, ShowsTheFaceListedLastIfItIsTheLeftOne) {
  const std::vector<Portrait> portraits = Portraits();
  const Group group = GroupOf({portraits[1], portraits[0]});
  Viewer viewer(group.picture.size());
  ExpectToSettle(viewer, group.picture, 1, {group.faces[0]});
  EXPECT_FALSE(Contains(viewer.Crop(), group.faces[1]));
}

// The cascade is no sure judge: in a brook, a clock and a dandelion it sees faces at some zooms.
TEST(FaceFollowing, LeavesPhotographsWithoutFacesAlone) {
  for (const std::string name :
       {"Dragonfly_by_Bolly", "aitzgorri_by_Aitzol_Berasategi", "friends_by_Aitzol_Berasategi",
        "picosdeeuropa_by_Aitzol_Berasategi", "sunset_by_Aitzol_Berasategi",
        "Picture_0B_by_freespace", "Wine_by_Jakkub_Mede"}) {
    SCOPED_TRACE(name);
    cv::Mat picture = Landscape(name);
    if (picture.empty()) continue;
    const double scale = 640.0 / picture.cols;
    cv::resize(picture, picture, {}, scale, scale, cv::INTER_AREA);
    Shot shot(picture, kFrame);
    Viewer viewer(kFrame);
    for (int i = 0; i < 40; ++i) {
      const Bytes frame =
          shot.Frame({picture.cols / 2.0 + 2.0 * i, picture.rows / 2.0 + i}, 1 + 0.02 * i);
      viewer.See(frame);
      ASSERT_FALSE(viewer.Box()) << i << ": " << *viewer.Box();
      ASSERT_EQ(viewer.Output(), frame) << i;
    }
  }
}

}  // namespace
}  // namespace kolm
