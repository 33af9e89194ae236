// Runs the tool as its users do and looks at what it says, returns and leaves behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tools/kolm/tool_fixture.h"

namespace kolm {
namespace {

// Colours that change softly, with an edge.
cv::Mat SmallPicture(int width, int height) {
  cv::Mat picture(height, width, CV_8UC3);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      picture.at<cv::Vec3b>(y, x) =
          x < width / 2 ? cv::Vec3b(200, 120, 60)
                        : cv::Vec3b(static_cast<uchar>(40 + 100 * y / height), 90, 180);
    }
  }
  return picture;
}

// The mean difference of two pictures' colour values.
double Difference(const cv::Mat& a, const cv::Mat& b) {
  return cv::norm(a, b, cv::NORM_L1) / static_cast<double>(a.total() * a.channels());
}

TEST_F(KolmTool, ListsTheEffects) {
  const Outcome outcome = Run("effects");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(outcome.output,
            " id  name                parameter  default\n"
            "  1  zoom-in             0 to 10    2\n"
            "  2  zoom-out            0 to 10    2\n"
            "  3  grayscale           none\n"
            "  4  sepia               none\n"
            "  5  box-blur            0 to 8     2\n"
            "  6  pixelate            0 to 8     3\n"
            "  7  emboss-grey         none\n"
            "  8  emboss-colour       none\n"
            "  9  picture-grid        1 to 8     3\n"
            " 10  edge-relief-grey    none\n"
            " 11  edge-relief-colour  none\n"
            " 12  sketch              none\n"
            " 13  negative            none\n"
            " 14  posterize           0 to 10    4\n"
            " 15  horizontal-bulge    none\n"
            " 16  horizontal-pinch    none\n"
            " 17  vertical-bulge      none\n"
            " 18  vertical-pinch      none\n");
}

TEST_F(KolmTool, SheetOfTheSample) {
  ExpectSuccess("sheet --cells cells sheet.png");
  const cv::Mat sheet = Read("sheet.png");
  // 5 x 4 cells of 320 x 240 under labels of 34 pixels, 20 apart, 28 from the edges.
  EXPECT_EQ(sheet.size(), cv::Size(1736, 1212));
  const cv::Mat source = Read("cells/source.png");
  ASSERT_EQ(source.size(), cv::Size(320, 240));
  EXPECT_EQ(Difference(sheet(cv::Rect(28, 62, 320, 240)), source), 0);
  for (int id = 1; id <= 18; ++id) {
    char name[32];
    std::snprintf(name, sizeof name, "cells/effect-%02d.png", id);
    SCOPED_TRACE(name);
    const cv::Mat cell = Read(name);
    ASSERT_EQ(cell.size(), cv::Size(320, 240));
    EXPECT_GT(Difference(cell, source), 1);
    const cv::Rect place(28 + id % 5 * 340, 62 + id / 5 * 294, 320, 240);
    EXPECT_EQ(Difference(sheet(place), cell), 0);
  }
}

TEST_F(KolmTool, SheetOfPicturesOfManyShapes) {
  const cv::Size sizes[] = {{2, 1}, {2, 700}, {900, 2}, {64, 63}, {1000, 1500}, {642, 481}};
  for (const cv::Size& size : sizes) {
    Write("picture.png", SmallPicture(size.width, size.height));
    ExpectSuccess("sheet -y picture.png sheet.png");
    EXPECT_EQ(Read("sheet.png").cols, 1736);
  }
}

TEST_F(KolmTool, AppliesByNameAndById) {
  Write("picture.png", SmallPicture(64, 48));
  ExpectSuccess("apply -e 4 picture.png id.png");
  ExpectSuccess("apply -e sepia picture.png name.png");
  ExpectSuccess("apply -e SEPIA:0 picture.png capitals.png");
  EXPECT_EQ(FileText(folder / "id.png"), FileText(folder / "name.png"));
  EXPECT_EQ(FileText(folder / "id.png"), FileText(folder / "capitals.png"));
  const cv::Mat grey = cv::Mat(48, 64, CV_8UC3, cv::Scalar::all(128));
  Write("grey.png", grey);
  ExpectSuccess("apply -e sepia grey.png brown.png");
  // U 96 and V 150 on grey, converted by the colour equations of BT.601.
  EXPECT_LE(
      Difference(Read("brown.png"),
                 cv::Mat(48, 64, CV_8UC3, cv::Scalar(128 - 64.5, 128 + 12.5 - 17.9, 128 + 35.1))),
      1);
}

TEST_F(KolmTool, ConvertsColoursThereAndBack) {
  const cv::Mat picture = SmallPicture(64, 48);
  Write("picture.png", picture);
  ExpectSuccess("apply -e posterize:0 picture.png same.png");
  EXPECT_LT(Difference(Read("same.png"), picture), 2);
  ExpectSuccess("apply -e box-blur:0 picture.png copy.png");
  EXPECT_EQ(Difference(Read("same.png"), Read("copy.png")), 0);
  for (const cv::Scalar& colour : {cv::Scalar::all(0), cv::Scalar::all(255)}) {
    Write("plain.png", cv::Mat(3, 4, CV_8UC3, colour));
    ExpectSuccess("apply -y -e box-blur:0 plain.png result.png");
    EXPECT_EQ(Difference(Read("result.png"), cv::Mat(3, 4, CV_8UC3, colour)), 0);
  }
}

TEST_F(KolmTool, AppliesInTheOrderGiven) {
  Write("picture.png", SmallPicture(64, 48));
  ExpectSuccess("apply -e sepia -e negative picture.png first.png");
  ExpectSuccess("apply -e negative -e sepia picture.png second.png");
  const cv::Mat first = Read("first.png");
  const cv::Mat second = Read("second.png");
  EXPECT_GT(Difference(first, second), 10);
  EXPECT_GT(second.at<cv::Vec3b>(24, 10)[2], second.at<cv::Vec3b>(24, 10)[0]);
}

TEST_F(KolmTool, ReadsAndWritesJpeg) {
  Write("picture.jpg", SmallPicture(65, 49));
  const Outcome outcome = Run("apply -e box-blur:0 picture.jpg result.jpeg");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_NE(outcome.errors.find("65 pixels wide; its last column is left out"), std::string::npos);
  EXPECT_EQ(FileText(folder / "result.jpeg").substr(0, 2), "\xFF\xD8");
  const cv::Mat result = Read("result.jpeg");
  ASSERT_EQ(result.size(), cv::Size(64, 49));
  EXPECT_LT(Difference(result, Read("picture.jpg").colRange(0, 64)), 4);
}

TEST_F(KolmTool, LaysTransparentPartsOnWhite) {
  for (const int depth : {CV_8U, CV_16U}) {
    const int most = depth == CV_8U ? 255 : 65535;
    cv::Mat picture(16, 32, CV_MAKETYPE(depth, 4), cv::Scalar(0, 0, most, most));
    picture.colRange(16, 32).setTo(cv::Scalar(0, 0, most, 0));
    Write("picture.png", picture);
    ExpectSuccess("apply -y -e box-blur:0 picture.png result.png");
    const cv::Mat result = Read("result.png");
    ASSERT_EQ(result.type(), CV_8UC3);
    EXPECT_LT(Difference(result.colRange(0, 12), cv::Mat(16, 12, CV_8UC3, cv::Scalar(0, 0, 255))),
              3);
    EXPECT_LT(Difference(result.colRange(20, 32), cv::Mat(16, 12, CV_8UC3, cv::Scalar::all(255))),
              1);
  }
}

TEST_F(KolmTool, ReadsGreyPictures) {
  Write("picture.png", cv::Mat(16, 32, CV_8UC1, cv::Scalar(77)));
  ExpectSuccess("apply -e box-blur:0 picture.png result.png");
  EXPECT_LE(Difference(Read("result.png"), cv::Mat(16, 32, CV_8UC3, cv::Scalar::all(77))), 1);
}

TEST_F(KolmTool, TellsWhatIsWrongWithAPicture) {
  Write("good.png", SmallPicture(64, 48));
  Write("good.jpg", SmallPicture(640, 480));
  Write("narrow.png", SmallPicture(1, 48));
  Write("long.png", cv::Mat(1, 32770, CV_8UC1, cv::Scalar(9)));
  Write("large.png", cv::Mat(10001, 10000, CV_8UC1, cv::Scalar(9)));
  WriteText(folder / "empty.png", "");
  WriteText(folder / "text.png", "no picture at all\n");
  const std::string png = FileText(folder / "good.png");
  WriteText(folder / "half.png", png.substr(0, png.size() / 2));
  const std::string jpeg = FileText(folder / "good.jpg");
  WriteText(folder / "half.jpg", jpeg.substr(0, jpeg.size() / 2));
  WriteText(folder / "huge.pgm", "P5 2000000 2000000 255\n");
  fs::create_directory(folder / "directory");

  ExpectFailure("apply -e sepia missing.png out.png", 3, "No such file");
  ExpectFailure("apply -e sepia directory out.png", 3, "it is a directory");
  ExpectFailure("apply -e sepia empty.png out.png", 3, "is empty; expected a picture");
  ExpectFailure("apply -e sepia text.png out.png", 3, "is not a whole picture");
  ExpectFailure("apply -e sepia half.png out.png", 3, "is not a whole picture");
  ExpectFailure("apply -e sepia half.jpg out.png", 3, "is not a whole picture");
  ExpectFailure("apply -e sepia huge.pgm out.png", 4, "too large: it does not fit into memory");
  ExpectFailure("apply -e sepia narrow.png out.png", 4, "expected a width of at least 2 pixels");
  ExpectFailure("apply -e sepia long.png out.png", 4, "too large: 32770 x 1 pixels");
  ExpectFailure("apply -e sepia large.png out.png", 4, "too large: 10000 x 10001 pixels");
  ExpectFailure("sheet missing.png out.png", 3, "No such file");
  ExpectFailure("sheet half.png out.png", 3, "is not a whole picture");
  ExpectFailure("sheet narrow.png out.png", 4, "expected a width of at least 2 pixels");
}

TEST_F(KolmTool, TellsWhatIsWrongWithAnEffect) {
  Write("picture.png", SmallPicture(64, 48));
  const std::string unknown = "expected an id from 1 to 18 or a name that 'kolm effects' lists";
  for (const std::string effect : {"0", "19", "blurr", "''", "4294967297", "-1"}) {
    ExpectFailure("apply -e=" + effect + " picture.png out.png", 5, unknown);
  }
  ExpectFailure("apply -e box-blur:9 picture.png out.png", 6,
                "expected a whole number from 0 to 8");
  ExpectFailure("apply -e 9:0 picture.png out.png", 6, "expected a whole number from 1 to 8");
  ExpectFailure("apply -e 9: picture.png out.png", 6, "expected a whole number from 1 to 8");
  ExpectFailure("apply -e 1:2x picture.png out.png", 6, "expected a whole number from 0 to 10");
  ExpectFailure("apply -e 1:-1 picture.png out.png", 6, "expected a whole number from 0 to 10");
  ExpectFailure("apply -e sepia:1 picture.png out.png", 6, "the effect takes none");
  ExpectFailure("apply -e sepia -e 14:11 picture.png out.png", 6, "from 0 to 10");
}

TEST_F(KolmTool, KeepsAnExistingOutput) {
  Write("picture.png", SmallPicture(64, 48));
  WriteText(folder / "out.png", "precious");
  ExpectFailure("apply -e sepia picture.png out.png", 7, "exists already; give -y");
  ExpectFailure("sheet picture.png out.png", 7, "exists already; give -y");
  ExpectFailure("sheet out.png", 7, "exists already; give -y");
  fs::create_symlink("nowhere.png", folder / "link.png");
  ExpectFailure("apply -e sepia picture.png link.png", 7, "exists already; give -y");
  EXPECT_EQ(FileText(folder / "out.png"), "precious");
  // A failure with -y leaves the old file, too.
  WriteText(folder / "text.png", "no picture at all\n");
  ExpectFailure("apply -y -e sepia text.png out.png", 3, "is not a whole picture");
  EXPECT_EQ(FileText(folder / "out.png"), "precious");
  ExpectSuccess("apply -y -e sepia picture.png out.png");
  EXPECT_EQ(Read("out.png").size(), cv::Size(64, 48));
  ExpectSuccess("apply -y -e negative out.png out.png");
}

TEST_F(KolmTool, KeepsExistingCells) {
  fs::create_directory(folder / "cells");
  WriteText(folder / "cells/effect-18.png", "precious");
  ExpectFailure("sheet --cells cells out.png", 7, "effect-18.png' exists already");
  EXPECT_FALSE(fs::exists(folder / "cells/source.png"));
  EXPECT_EQ(FileText(folder / "cells/effect-18.png"), "precious");
  ExpectSuccess("sheet -y --cells cells out.png");
  EXPECT_EQ(Read("cells/effect-18.png").size(), cv::Size(320, 240));
}

TEST_F(KolmTool, TellsWhyItCannotWrite) {
  Write("picture.png", SmallPicture(64, 48));
  fs::create_directory(folder / "directory.png");
  ExpectFailure("apply -y -e sepia picture.png directory.png", 8, "it is a directory");
  ExpectFailure("apply -y -e sepia picture.png /dev/null", 8, "it is not a regular file");
  ExpectFailure("apply -e sepia picture.png missing/out.png", 8, "No such file");
  ExpectFailure("apply -e sepia picture.png out.xyz", 8, "no picture format");
  ExpectFailure("apply -e sepia picture.png out", 8, "no picture format");
  ExpectFailure("sheet missing/out.png", 8, "No such file");
  ExpectFailure("sheet --cells picture.png/cells out.png", 8, "cannot make the directory");
  ExpectFailure("effects --debug-log missing/log", 8,
                "cannot write the debug log 'missing/log': No such file or directory; expected");
  for (const std::string command : {"effects", "apply -y -e sepia picture.png picture.png"}) {
    ExpectFailure(
        command + " --debug-log /dev/full", 8,
        "cannot write the debug log '/dev/full': No space left on device; expected a file");
  }
}

constexpr uintmax_t kRecordBytes = 640 * 480 * 3;

// SmallPicture with an alpha plane that falls from left to right.
cv::Mat FadingPicture(int width, int height) {
  cv::Mat picture;
  cv::cvtColor(SmallPicture(width, height), picture, cv::COLOR_BGR2BGRA);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      picture.at<cv::Vec4b>(y, x)[3] = static_cast<uchar>(255 - x * 255 / width);
    }
  }
  return picture;
}

cv::Mat Plain(int width, int height, const cv::Scalar& colour) {
  return cv::Mat(height, width, CV_8UC3, colour);
}

cv::Mat Colours(const cv::Mat& picture) {
  cv::Mat colours;
  cv::cvtColor(picture, colours, cv::COLOR_BGRA2BGR);
  return colours;
}

cv::Mat Alpha(const cv::Mat& picture) {
  cv::Mat alpha;
  cv::extractChannel(picture, alpha, 3);
  return alpha;
}

const cv::Scalar kRed(40, 40, 200), kGreen(40, 200, 40), kBlue(200, 40, 40);

TEST_F(KolmTool, StoresAndExtracts) {
  const cv::Mat picture = FadingPicture(640, 480);
  Write("fading.png", picture);
  Write("whole.png", SmallPicture(640, 480));
  ExpectSuccess("store create store.img fading.png whole.png");
  EXPECT_EQ(fs::file_size(folder / "store.img"), 2 * kRecordBytes);
  ExpectSuccess("store extract store.img 1 first.png");
  ExpectSuccess("store extract store.img 2 second.png");
  const cv::Mat first = Read("first.png"), second = Read("second.png");
  ASSERT_EQ(first.type(), CV_8UC4);
  EXPECT_EQ(Difference(Alpha(first), Alpha(picture)), 0);
  EXPECT_LT(Difference(Colours(first), Colours(picture)), 2);
  EXPECT_EQ(Difference(Alpha(second), cv::Mat(480, 640, CV_8U, cv::Scalar(255))), 0);
  EXPECT_LT(Difference(Colours(second), SmallPicture(640, 480)), 2);
  // The alpha plane lies behind the frame as it is.
  const std::string record = FileText(folder / "store.img").substr(0, kRecordBytes);
  for (const int pixel : {0, 100, 639, 640, 307199}) {
    EXPECT_EQ(static_cast<uchar>(record[614400 + static_cast<size_t>(pixel)]),
              picture.at<cv::Vec4b>(pixel / 640, pixel % 640)[3]);
  }
}

TEST_F(KolmTool, CropsToTheMiddleOrStretches) {
  cv::Mat wide = Plain(960, 480, kGreen);
  wide.colRange(0, 160).setTo(kRed);
  wide.colRange(800, 960).setTo(kBlue);
  cv::Mat tall;
  cv::rotate(wide, tall, cv::ROTATE_90_CLOCKWISE);
  Write("wide.png", wide);
  Write("tall.png", tall);
  ExpectSuccess("store create store.img wide.png");
  ExpectSuccess("store append --stretch store.img wide.png tall.png");
  ExpectSuccess("store append store.img tall.png");
  for (int record = 1; record <= 4; ++record) {
    const std::string number = std::to_string(record);
    std::string arguments = "store extract store.img ";
    arguments += number;
    arguments += ' ';
    arguments += number;
    ExpectSuccess(arguments + ".png");
  }
  EXPECT_LT(Difference(Colours(Read("1.png")), Plain(640, 480, kGreen)), 2);
  EXPECT_LT(Difference(Colours(Read("4.png")), Plain(640, 480, kGreen)), 2);
  const cv::Mat flat = Colours(Read("2.png")), low = Colours(Read("3.png"));
  EXPECT_LT(Difference(flat.colRange(0, 100), Plain(100, 480, kRed)), 2);
  EXPECT_LT(Difference(flat.colRange(112, 528), Plain(416, 480, kGreen)), 2);
  EXPECT_LT(Difference(flat.colRange(540, 640), Plain(100, 480, kBlue)), 2);
  EXPECT_LT(Difference(low.rowRange(0, 76), Plain(640, 76, kRed)), 2);
  EXPECT_LT(Difference(low.rowRange(404, 480), Plain(640, 76, kBlue)), 2);
}

TEST_F(KolmTool, ScalesAlphaWithoutTheColoursOfTransparentParts) {
  for (const cv::Size& size : {cv::Size(320, 240), cv::Size(1280, 960)}) {
    cv::Mat picture(size, CV_8UC4, cv::Scalar(40, 200, 40, 255));
    picture.colRange(0, size.width / 2 + 1).setTo(cv::Scalar(255, 0, 255, 0));
    Write("picture.png", picture);
    ExpectSuccess("store create -y store.img picture.png");
    ExpectSuccess("store extract -y store.img 1 out.png");
    const cv::Mat result = Read("out.png");
    const cv::Mat alpha = Alpha(result);
    EXPECT_EQ(cv::countNonZero(alpha.colRange(0, 316)), 0);
    EXPECT_EQ(cv::countNonZero(alpha.colRange(326, 640) != 255), 0);
    // A pair's two pixels share their colour.
    for (int x = 0; x + 1 < 640; x += 2) {
      if (alpha.at<uchar>(200, x) < 8 || alpha.at<uchar>(200, x + 1) < 8) continue;
      EXPECT_LT(Difference(Colours(result)(cv::Rect(x, 200, 2, 1)), Plain(2, 1, kGreen)), 6) << x;
    }
  }
}

TEST_F(KolmTool, StoresPicturesOfManyKinds) {
  Write("picture.jpg", SmallPicture(800, 600));
  Write("picture.bmp", SmallPicture(64, 48));
  Write("grey.png", cv::Mat(3, 5, CV_8UC1, cv::Scalar(77)));
  Write("dot.png", Plain(1, 1, kBlue));
  Write("line.png", Plain(1, 3000, kGreen));
  Write("deep.png", cv::Mat(30, 40, CV_16UC4, cv::Scalar(10280, 51400, 10280, 32896)));
  ExpectSuccess(
      "store create store.img picture.jpg picture.bmp grey.png dot.png line.png deep.png");
  const Outcome list = Run("store list store.img");
  EXPECT_EQ(list.code, 0) << list.errors;
  std::istringstream lines(list.output);
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line, "record  mean colour  covers");
  for (int record = 1; record <= 6; ++record) {
    SCOPED_TRACE(record);
    ASSERT_TRUE(std::getline(lines, line));
    int number = 0;
    unsigned colour = 0;
    double covers = 0;
    ASSERT_EQ(std::sscanf(line.c_str(), "%d #%x %lf %%", &number, &colour, &covers), 3) << line;
    EXPECT_EQ(number, record);
    EXPECT_NEAR(covers, record == 6 ? 50.2 : 100, 0.05);
    const cv::Scalar expected = record <= 2   ? cv::mean(SmallPicture(64, 48))
                                : record == 3 ? cv::Scalar::all(77)
                                : record == 4 ? kBlue
                                              : kGreen;
    EXPECT_NEAR(colour >> 16, expected[2], 3);
    EXPECT_NEAR(colour >> 8 & 0xFF, expected[1], 3);
    EXPECT_NEAR(colour & 0xFF, expected[0], 3);
  }
  EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(KolmTool, ChangesStores) {
  Write("red.png", Plain(8, 6, kRed));
  Write("green.png", Plain(8, 6, kGreen));
  Write("blue.png", Plain(8, 6, kBlue));
  ExpectSuccess("store create red.img red.png");
  ExpectSuccess("store create green.img green.png");
  ExpectSuccess("store create blue.img blue.png");
  const std::string red = FileText(folder / "red.img"), green = FileText(folder / "green.img"),
                    blue = FileText(folder / "blue.img");
  EXPECT_NE(red, green);
  const auto text = [&] { return FileText(folder / "store.img"); };
  ExpectSuccess("store create store.img");
  EXPECT_EQ(text(), "");
  EXPECT_EQ(Run("store verify store.img").output, "store.img: 0 records, whole\n");
  ExpectSuccess("store append store.img red.png green.png");
  EXPECT_EQ(text(), red + green);
  ExpectSuccess("store append store.img red.png");
  EXPECT_EQ(text(), red + green + red);
  ExpectSuccess("store replace store.img 3 blue.png");
  EXPECT_EQ(text(), red + green + blue);
  ExpectSuccess("store replace store.img 1 green.png");
  EXPECT_EQ(text(), green + green + blue);
  EXPECT_EQ(Run("store verify store.img").output, "store.img: 3 records, whole\n");
  // A link stays one, and permissions stay.
  fs::create_symlink("store.img", folder / "link.img");
  fs::permissions(folder / "store.img", fs::perms::owner_read | fs::perms::owner_write);
  ExpectSuccess("store replace link.img 2 red.png");
  EXPECT_TRUE(fs::is_symlink(folder / "link.img"));
  EXPECT_EQ(text(), green + red + blue);
  EXPECT_EQ(fs::status(folder / "store.img").permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(KolmTool, TellsWhatIsWrongWithAStore) {
  Write("picture.png", SmallPicture(8, 6));
  WriteText(folder / "text.png", "no picture at all\n");
  ExpectSuccess("store create store.img picture.png");
  ExpectSuccess("store create empty.img");
  const std::string whole = FileText(folder / "store.img");
  WriteText(folder / "odd.img", whole + "tail");
  fs::create_directory(folder / "directory");

  ExpectFailure("store create new.img text.png", 3, "is not a whole picture");
  ExpectFailure("store create new.img picture.png missing.png", 3, "No such file");
  ExpectFailure("store create missing/new.img picture.png", 8, "No such file");
  ExpectFailure("store create -y directory picture.png", 8, "it is a directory");
  ExpectFailure("store create -y /dev/full picture.png", 8, "it is not a regular file");
  ExpectFailure("store append store.img text.png", 3, "is not a whole picture");
  ExpectFailure("store replace store.img 1 text.png", 3, "is not a whole picture");
  EXPECT_EQ(FileText(folder / "store.img"), whole);

  for (const std::string command : {"append S picture.png", "replace S 1 picture.png",
                                    "extract S 1 out.png", "list S", "verify S"}) {
    const size_t place = command.find('S');
    const auto on = [&](const std::string& store) {
      return "store " + std::string(command).replace(place, 1, store);
    };
    ExpectFailure(on("missing.img"), 9, "No such file");
    ExpectFailure(on("directory"), 9, "it is not a regular file");
    if (command[0] == 'e') continue;
    ExpectFailure(on("odd.img"), 9, "behind 1 record there is an odd tail of 4 bytes");
  }
  EXPECT_EQ(FileText(folder / "odd.img"), whole + "tail");
  // What is whole can be seen and saved.
  EXPECT_NE(Run("store list odd.img").output.find("\n     1  #"), std::string::npos);
  ExpectSuccess("store extract odd.img 1 saved.png");

  for (const std::string number : {"0", "2", "2331"}) {
    ExpectFailure(
        "store extract store.img " + number + " out.png", 10,
        "there is no record " + number + " in 'store.img'; expected a number from 1 to 1");
    ExpectFailure("store replace store.img " + number + " picture.png", 10, "expected a number");
    ExpectFailure("background --store store.img --record " + number + " picture.png out.png", 10,
                  "expected a number from 1 to 1");
  }
  WriteText(folder / "short.img", "tail");
  for (const bool isView : {false, true}) {
    const auto with = [&](const std::string& store) {
      return (isView ? "view --store " : "background picture.png new.png --store ") + store;
    };
    const auto expectUnusable = [&](const std::string& store, const std::string& reason) {
      std::string message = "kolm: cannot use the store '" + store;
      message += "': ";
      message += reason;
      message +=
          "; expected a file of 1 to 2331 whole records of 921600 bytes, such as 'kolm store "
          "create' makes of pictures\n";
      ExpectFailure(with(store), 9, message);
    };
    expectUnusable("missing.img", "No such file or directory");
    expectUnusable("directory", "it is not a regular file");
    expectUnusable("empty.img", "it is empty");
    expectUnusable("odd.img", "behind 1 record there is an odd tail of 4 bytes");
    ExpectFailure(with("short.img"), 9, Run("store verify short.img").errors);
    ExpectFailure(with("store.img --record 2"), 10, "expected a number from 1 to 1");
  }
  ExpectFailure("store extract odd.img 2 out.png", 10, "expected a number from 1 to 1");
  ExpectFailure("store extract empty.img 1 out.png", 10, "which has no records");
  ExpectFailure("store extract store.img 2332 out.png", 10, "reaches only 2331");
  ExpectFailure("store extract store.img -- -1 out.png", 2, "-1");
  ExpectFailure("store extract store.img one out.png", 2, "one");
  ExpectFailure("store extract store.img 1 out.jpg", 8, "ends in .png");
  ExpectFailure("store extract store.img 1 missing/out.png", 8, "No such file");
}

TEST_F(KolmTool, StoresReachAsFarAsTheModule) {
  Write("picture.png", SmallPicture(8, 6));
  // Files with nothing in them but a length.
  WriteText(folder / "full.img", "");
  fs::resize_file(folder / "full.img", 2331 * kRecordBytes);
  WriteText(folder / "over.img", "");
  fs::resize_file(folder / "over.img", 2332 * kRecordBytes);
  ExpectFailure("store append full.img picture.png", 10, "would have 2332 records");
  ExpectFailure("store append over.img picture.png", 9, "it has 2332 records");
  ExpectFailure("store verify over.img", 9, "it has 2332 records; the module reaches only 2331");
  ExpectFailure("store extract over.img 2332 out.png", 10, "reaches only 2331");
  ExpectFailure("background --store over.img --record 2332 picture.png out.png", 10,
                "reaches only 2331");
  // The last record within reach is what the module loads.
  ExpectSuccess("store create one.img picture.png");
  std::fstream file(folder / "full.img", std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(static_cast<std::streamoff>(2330 * kRecordBytes));
  file << FileText(folder / "one.img") << std::flush;
  Write("live.png", Plain(64, 48, kRed));
  ExpectSuccess("background --store full.img --record 2331 live.png last.png");
  ExpectSuccess("background --store one.img live.png one.png");
  EXPECT_EQ(Difference(Read("last.png"), Read("one.png")), 0);
}

TEST_F(KolmTool, NeverLeavesHalfAStore) {
  Write("picture.png", SmallPicture(8, 6));
  ExpectSuccess("store create store.img picture.png");
  const std::string whole = FileText(folder / "store.img");
  // Blocks of 512 bytes: there is room for one record and a part of the next.
  const std::string small = "ulimit -f 2000";
  ExpectFailure("store create new.img picture.png picture.png", 8, "File too large", small);
  ExpectFailure("store create -y store.img picture.png picture.png", 8, "File too large", small);
  ExpectFailure("store append store.img picture.png", 8, "File too large", small);
  EXPECT_EQ(FileText(folder / "store.img"), whole);
  ExpectSuccess("store append store.img picture.png");
  const std::string both = FileText(folder / "store.img");
  ExpectFailure("store replace store.img 1 picture.png", 8, "File too large", small);
  EXPECT_EQ(FileText(folder / "store.img"), both);
}

TEST_F(KolmTool, KeepsAnExistingStore) {
  Write("picture.png", SmallPicture(8, 6));
  WriteText(folder / "store.img", "precious");
  ExpectFailure("store create store.img picture.png", 7, "exists already; give -y");
  ExpectFailure("store create -y store.img missing.png", 3, "No such file");
  EXPECT_EQ(FileText(folder / "store.img"), "precious");
  ExpectSuccess("store create -y store.img picture.png");
  EXPECT_EQ(fs::file_size(folder / "store.img"), kRecordBytes);
  WriteText(folder / "out.png", "precious");
  ExpectFailure("store extract store.img 1 out.png", 7, "exists already; give -y");
  ExpectFailure("background --store store.img picture.png out.png", 7, "exists already; give -y");
  ExpectFailure("background-sheet picture.png out.png", 7, "exists already; give -y");
  EXPECT_EQ(FileText(folder / "out.png"), "precious");
  ExpectSuccess("store extract -y store.img 1 out.png");
  ExpectSuccess("background -y --store store.img picture.png out.png");
  EXPECT_EQ(Read("out.png").size(), cv::Size(8, 6));
}

TEST_F(KolmTool, ReplacesBackgrounds) {
  // Covers the left half, half covers a strip, leaves the right.
  cv::Mat background(480, 640, CV_8UC4, cv::Scalar(40, 200, 40, 255));
  background.colRange(320, 400).setTo(cv::Scalar(40, 200, 40, 128));
  background.colRange(400, 640).setTo(cv::Scalar(255, 255, 255, 0));
  Write("background.png", background);
  Write("red.png", Plain(8, 6, kRed));
  ExpectSuccess("store create store.img red.png background.png");
  for (const cv::Size& size : {cv::Size(640, 480), cv::Size(1280, 720), cv::Size(1920, 1080),
                               cv::Size(160, 120), cv::Size(2, 1)}) {
    SCOPED_TRACE(size.width);
    Write("live.png", Plain(size.width, size.height, kBlue));
    ExpectSuccess("background -y --store store.img --record 2 live.png out.png");
    const cv::Mat result = Read("out.png");
    ASSERT_EQ(result.size(), size);
    ASSERT_EQ(result.type(), CV_8UC3);
    if (size.width == 2) continue;
    const auto part = [&](double from, double to) {
      return result.colRange(static_cast<int>(from * size.width),
                             static_cast<int>(to * size.width));
    };
    const auto same = [&](const cv::Mat& columns, const cv::Scalar& colour) {
      return Difference(columns, Plain(columns.cols, columns.rows, colour));
    };
    // The module leaves each value one step darker.
    EXPECT_LT(same(part(0, 0.48), kGreen), 4);
    EXPECT_LT(same(part(0.52, 0.61), (kGreen + kBlue) / 2), 4);
    EXPECT_LT(same(part(0.65, 1), kBlue), 4);
  }
  // The first record by default.
  ExpectSuccess("background -y --store store.img live.png out.png");
  EXPECT_LT(Difference(Read("out.png"), Plain(2, 1, kRed)), 4);
}

TEST_F(KolmTool, ReplacesBackgroundsByBitmaps) {
  cv::Mat picture = Plain(64, 48, kGreen);
  picture.rowRange(24, 48).setTo(kRed);
  fs::create_directory(folder / "Räume");
  Write("Räume/picture.bmp", picture);
  Write("live.png", Plain(128, 96, kBlue));
  for (const std::string name : {"Räume/picture.bmp", "./Räume/../Räume/picture.bmp"}) {
    ExpectSuccess("background -y --bitmap " + name + " live.png out.png");
    const cv::Mat result = Read("out.png");
    ASSERT_EQ(result.size(), cv::Size(128, 96));
    EXPECT_LT(Difference(result.rowRange(0, 45), Plain(128, 45, kGreen)), 4);
    EXPECT_LT(Difference(result.rowRange(50, 96), Plain(128, 46, kRed)), 4);
  }
}

TEST_F(KolmTool, TellsWhatIsWrongWithABackground) {
  Write("live.png", SmallPicture(64, 48));
  Write("picture.bmp", SmallPicture(64, 48));
  Write("grey.bmp", cv::Mat(48, 64, CV_8U, cv::Scalar(9)));
  WriteText(folder / "text.bmp", "no picture at all\n");
  WriteText(folder / "empty.bmp", "");
  WriteText(folder / "header.bmp", FileText(folder / "picture.bmp").substr(0, 54));
  WriteText(folder / "a:b.bmp", "");
  fs::create_directory(folder / "directory");
  ExpectSuccess("store create store.img picture.bmp");

  const auto with = [](const std::string& bitmap) {
    return "background --bitmap " + bitmap + " live.png out.png";
  };
  ExpectFailure(with("missing.bmp"), 3,
                "cannot read 'missing.bmp': there is no such file (status 0xC0000034); expected an "
                "uncompressed bitmap of 24 or 32 bits a pixel, such as 'ffmpeg -i picture.png "
                "-pix_fmt bgr24 frame.bmp' writes\n");
  ExpectFailure(with("missing/picture.bmp"), 3, "there is no such directory");
  ExpectFailure(with("directory"), 3, "it is a directory (status 0xC00000BA)");
  ExpectFailure(with("text.bmp"), 3, "not an uncompressed bitmap of 24 or 32 bits");
  ExpectFailure(with("empty.bmp"), 3, "not an uncompressed bitmap of 24 or 32 bits");
  ExpectFailure(with("grey.bmp"), 3, "not an uncompressed bitmap of 24 or 32 bits");
  ExpectFailure(with("live.png"), 3, "not an uncompressed bitmap of 24 or 32 bits");
  ExpectFailure(with("header.bmp"), 3, "it ends before its pixels begin");
  ExpectFailure(with("a:b.bmp"), 3, "characters that the module's paths cannot have");
  ExpectFailure(with("$(printf 'x\\377.bmp')"), 3, "its path is not UTF-8");
  fs::permissions(folder / "picture.bmp", fs::perms::none);
  ExpectFailure(with("picture.bmp"), 3, "no permission to read it (status 0xC0000022)");
  fs::permissions(folder / "store.img", fs::perms::none);
  ExpectFailure("background --store store.img live.png out.png", 9,
                "no permission to read it (status 0xC0000022)");
  fs::permissions(folder / "store.img", fs::perms::owner_read);
  ExpectFailure("background --store missing.img live.png out.png", 9, "No such file");
  ExpectFailure("background --store store.img missing.png out.png", 3, "No such file");
  ExpectFailure("background --store store.img live.png missing/out.png", 8, "No such file");
  ExpectFailure("background --store store.img live.png out.xyz", 8, "no picture format");
  ExpectFailure("background --store store.img live.png out.png", 8, "temporary directory",
                "export TMPDIR=/proc");
  ExpectFailure("background live.png out.png", 2, "Exactly 1 option from [--store,--bitmap]");
  ExpectFailure("background --store store.img --bitmap a.bmp live.png out.png", 2, "Exactly 1");
  ExpectFailure("background --record 1 --bitmap a.bmp live.png out.png", 2, "requires --store");
  ExpectFailure("background --store store.img --record x live.png out.png", 2, "--record");
}

TEST_F(KolmTool, TellsOfABitmapThatEndsEarly) {
  Write("live.png", Plain(64, 48, kBlue));
  Write("narrow.bmp", Plain(63, 48, kGreen));
  Write("whole.bmp", Plain(64, 48, kGreen));
  cv::Mat clear(48, 64, CV_8UC4, cv::Scalar(40, 200, 40, 255));
  Write("clear.bmp", clear);
  for (const std::string name : {"narrow.bmp", "whole.bmp", "clear.bmp"}) {
    const std::string bytes = FileText(folder / name);
    const std::string whole = std::to_string(bytes.size());
    for (const size_t count : {size_t{1000}, bytes.size() - 1}) {
      WriteText(folder / "cut.bmp", bytes.substr(0, count));
      const Outcome outcome = Run("background -y --bitmap cut.bmp live.png out.png");
      EXPECT_EQ(outcome.code, 0);
      EXPECT_EQ(outcome.errors, "kolm: 'cut.bmp' ends early: it has " + std::to_string(count) +
                                    " of " + whole +
                                    " bytes; what is missing is shown as the module leaves it\n");
      ExpectSuccess("background -q -y --bitmap cut.bmp live.png out.png");
    }
    // Bytes behind the pixels do no harm.
    WriteText(folder / "long.bmp", bytes + "behind");
    ExpectSuccess("background -y --bitmap long.bmp live.png out.png");
  }
  // From top to bottom, with the size of the pixels told.
  std::string bytes = FileText(folder / "whole.bmp");
  bytes.replace(22, 4, std::string("\xD0\xFF\xFF\xFF", 4));
  bytes.replace(34, 4, std::string("\x00\x24\x00\x00", 4));
  bytes.pop_back();
  WriteText(folder / "cut.bmp", bytes);
  const std::string expected = "'cut.bmp' ends early: it has " + std::to_string(bytes.size());
  EXPECT_NE(Run("background -y --bitmap cut.bmp live.png out.png").errors.find(expected),
            std::string::npos);
}

TEST_F(KolmTool, LeavesNothingInTheTemporaryDirectory) {
  Write("picture.png", SmallPicture(8, 6));
  ExpectSuccess("store create store.img picture.png");
  fs::create_directory(folder / "temporary");
  const Outcome outcome = Run("background --debug-log log --store store.img picture.png out.png",
                              "export TMPDIR=$PWD/temporary");
  EXPECT_EQ(outcome.code, 0) << outcome.errors;
  EXPECT_TRUE(fs::is_empty(folder / "temporary"));
  EXPECT_EQ(FileText(folder / "log"),
            "Kolm: Kolm_BG_LoadBackground\n"
            "Kolm: Kolm_BG_ScaleBackground\n"
            "Kolm: Kolm_BG_AlphaBlenging\n");
}

TEST_F(KolmTool, SheetOfAReplacedBackground) {
  ExpectSuccess("background-sheet sheet.png");
  const cv::Mat sheet = Read("sheet.png");
  // 4 cells of 480 x 360 under labels of 34 pixels, 20 apart, 28 from the edges.
  ASSERT_EQ(sheet.size(), cv::Size(2036, 450));
  const auto cell = [&](int index) { return sheet(cv::Rect(28 + index * 500, 62, 480, 360)); };
  const cv::Mat live = cell(0), background = cell(1), alpha = cell(2), result = cell(3);
  int covered = 0, left = 0;
  for (int y = 0; y < 360; ++y) {
    for (int x = 0; x < 480; ++x) {
      const uchar cover = alpha.at<cv::Vec3b>(y, x)[0];
      covered += cover == 255;
      left += cover == 0;
    }
  }
  EXPECT_GT(covered, 480 * 360 * 2 / 5);
  EXPECT_GT(left, 480 * 360 * 2 / 5);
  cv::Mat mask;
  cv::extractChannel(alpha, mask, 0);
  // Away from edges, where the two pixels of a pair share their colour.
  const cv::Mat shape = cv::Mat::ones(5, 5, CV_8U);
  cv::Mat inside, outside;
  cv::erode(mask == 255, inside, shape);
  cv::erode(mask == 0, outside, shape);
  EXPECT_LT(cv::norm(result, background, cv::NORM_L1, inside) / (3.0 * cv::countNonZero(inside)),
            3);
  EXPECT_LT(cv::norm(result, live, cv::NORM_L1, outside) / (3.0 * cv::countNonZero(outside)), 3);

  for (const cv::Size& size : {cv::Size(2, 1), cv::Size(900, 2), cv::Size(1000, 1501)}) {
    Write("picture.png", SmallPicture(size.width, size.height));
    ExpectSuccess("background-sheet -y picture.png sheet.png");
    EXPECT_EQ(Read("sheet.png").cols, 2036);
  }
  ExpectFailure("background-sheet", 2, "OUTPUT is required");
  ExpectFailure("background-sheet missing.png out.png", 3, "No such file");
}

// ---- Face tracking ----

// Eyes, nose and mouth in the photograph, of 640 x 480 pixels.
const cv::Rect kFace(238, 100, 92, 100);

// The photograph moved by `right`.
cv::Mat MovedPhotograph(int right) {
  const cv::Mat photograph = cv::imread(KOLM_TEST_PHOTOGRAPH);
  cv::Mat moved;
  cv::warpAffine(photograph, moved, cv::Matx23d(1, 0, right, 0, 1, 0), photograph.size(),
                 cv::INTER_NEAREST, cv::BORDER_REPLICATE);
  return moved;
}

// The numbers of an array in a line of the trace; empty for null.
std::vector<int> Numbers(const std::string& line, const std::string& name) {
  const std::string start = "\"" + name + "\":[";
  const size_t at = line.find(start);
  if (at == std::string::npos) return {};
  std::istringstream text(line.substr(at + start.size()));
  std::vector<int> numbers;
  char comma = 0;
  for (int number = 0; text >> number; text >> comma) numbers.push_back(number);
  return numbers;
}

cv::Rect Rectangle(const std::vector<int>& numbers) {
  return numbers.size() == 4 ? cv::Rect(numbers[0], numbers[1], numbers[2], numbers[3])
                             : cv::Rect();
}

std::vector<std::string> Lines(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST_F(KolmTool, FollowsAFaceThroughASequence) {
  constexpr int kFrames = 24;
  const auto rightAt = [](int frame) { return std::min(frame, 12) * 5; };
  const auto name = [](const char* what, int frame) {
    char text[32];
    std::snprintf(text, sizeof text, "%s-%03d.png", what, frame);
    return std::string(text);
  };
  for (int i = 0; i < kFrames; ++i) Write(name("in", i), MovedPhotograph(rightAt(i)));
  ExpectSuccess("track --steps 4 --trace trace in-%03d.png out-%03d.png");
  ExpectSuccess("track --steps 4 --overlay in-%03d.png drawn-%03d.png");
  const std::vector<std::string> lines = Lines(FileText(folder / "trace"));
  ASSERT_EQ(lines.size(), kFrames);
  EXPECT_EQ(Names().size(), 3 * kFrames + 1);
  for (int i = 0; i < kFrames; ++i) {
    SCOPED_TRACE(lines[i]);
    EXPECT_EQ(lines[i].find("{\"frame\":" + std::to_string(i) + ","), 0u);
    const cv::Mat source = Read(name("in", i)), result = Read(name("out", i));
    const cv::Mat drawn = Read(name("drawn", i));
    ASSERT_EQ(result.size(), source.size());
    ASSERT_EQ(drawn.size(), source.size());
    const cv::Rect crop = Rectangle(Numbers(lines[i], "crop"));
    ASSERT_EQ(crop & cv::Rect({}, source.size()), crop);
    ASSERT_GT(crop.area(), 0);
    const cv::Rect face = kFace + cv::Point(rightAt(i), 0);
    EXPECT_EQ(crop & face, face);
    if (const cv::Rect box = Rectangle(Numbers(lines[i], "box")); box.area() > 0) {
      EXPECT_EQ(box & face, face);
    }
    // The output is the crop.
    cv::Mat expected;
    cv::resize(source(crop), expected, source.size(), 0, 0, cv::INTER_NEAREST);
    EXPECT_LT(Difference(result, expected), 5);
    // The crop's border is orange, its inside as it was, the rest darker.
    const cv::Vec3b border = drawn.at<cv::Vec3b>(crop.br() - cv::Point(2, 2));
    EXPECT_GT(border[2], 180) << border;
    EXPECT_LT(border[0], 90) << border;
    EXPECT_LT(Difference(drawn(face), source(face)), 4);
    if (crop.x > 40) {
      const cv::Rect left(0, 0, crop.x - 20, source.rows);
      EXPECT_LT(cv::mean(drawn(left))[1], 0.7 * cv::mean(source(left))[1]);
    }
  }
  const cv::Rect last = Rectangle(Numbers(lines.back(), "crop"));
  EXPECT_LT(last.width, 400);
  EXPECT_GT(last.x, Rectangle(Numbers(lines[6], "crop")).x + 20);
}

TEST_F(KolmTool, OpensAgainWhenTheFaceIsGone) {
  const cv::Mat face = MovedPhotograph(0), empty = MovedPhotograph(600);
  for (int i = 0; i < 30; ++i) {
    Write("in-" + std::to_string(100 + i) + ".png", i < 12 ? face : empty);
  }
  ExpectSuccess("track --steps 4 --reset-when-lost --trace trace in-%d.png out-%d.png");
  EXPECT_LT(Difference(Read("out-129.png"), empty), 4);
  std::vector<std::string> lines = Lines(FileText(folder / "trace"));
  EXPECT_NE(lines[11].find("\"box\":["), std::string::npos);
  EXPECT_NE(lines[12].find("\"box\":null"), std::string::npos);
  EXPECT_LT(Rectangle(Numbers(lines[15], "crop")).width, 400);
  // The record's own crop has stopped a step earlier.
  EXPECT_EQ(Rectangle(Numbers(lines[29], "crop")), cv::Rect(0, 0, 640, 480));

  ExpectSuccess("track --steps 4 -y --trace trace in-%d.png out-%d.png");
  lines = Lines(FileText(folder / "trace"));
  EXPECT_EQ(Rectangle(Numbers(lines[29], "crop")), Rectangle(Numbers(lines[11], "target")));
  EXPECT_GT(Difference(Read("out-129.png"), empty), 4);
  // The margin is 20 pixels of the detection picture.
  ExpectSuccess("track --detect 320x240 --trace small in-100.png one.png");
  EXPECT_LT(Rectangle(Numbers(FileText(folder / "small"), "box")).width,
            Rectangle(Numbers(lines[0], "box")).width - 60);
  ExpectFailure("track --detect 6x4 in-100.png new.png", 2, "the width a multiple of 4");
  ExpectFailure("track --detect 644x480 in-100.png new.png", 2, "at most the frame's 640 x 480");
  ExpectFailure("track --steps 0 in-100.png new.png", 2, "--steps");
}

TEST_F(KolmTool, FilmStripOfFaceTracking) {
  ExpectSuccess("track-sheet strip.png");
  const cv::Mat strip = Read("strip.png");
  // 2 x 8 cells of 280 x 210 under labels of 34 pixels, 20 apart, 28 from the edges, 84 below the
  // head.
  ASSERT_EQ(strip.size(), cv::Size(2436, 648));
  const auto cell = [&](int row, int column) {
    return strip(cv::Rect(28 + column * 300, 146 + row * 264, 280, 210));
  };
  // The first frame is the whole one, and so is the one after she has left; in between and at the
  // end a part is enlarged.
  const cv::Rect inside(12, 12, 256, 186);
  for (int column = 0; column < 8; ++column) {
    const double difference = Difference(cell(0, column)(inside), cell(1, column)(inside));
    if (column == 0 || column == 5) {
      EXPECT_LT(difference, 5) << column;
    } else {
      EXPECT_GT(difference, 15) << column;
    }
  }
  EXPECT_LT(Difference(cell(1, 0), cell(1, 5)), 5);

  for (int i = 1; i <= 5; ++i) Write("in-" + std::to_string(i) + ".png", MovedPhotograph(i * 8));
  ExpectSuccess("track-sheet -y --steps 2 in-%d.png strip.png");
  EXPECT_EQ(Read("strip.png").size(), cv::Size(2436, 648));
  // A picture is held still; any shape will do.
  for (const cv::Size& size : {cv::Size(2, 1), cv::Size(900, 2), cv::Size(500, 750)}) {
    Write("picture.png", SmallPicture(size.width, size.height));
    ExpectSuccess("track-sheet -y --steps 2 picture.png strip.png");
    EXPECT_EQ(Read("strip.png").cols, 2436);
  }
  ExpectFailure("track-sheet", 2, "OUTPUT is required");
  ExpectFailure("track-sheet missing.png new.png", 3, "No such file");
  ExpectFailure("track-sheet in-%d.png strip.png", 7, "exists already; give -y");
  WriteText(folder / "in-6.png", "no picture");
  ExpectFailure("track-sheet in-%d.png new.png", 11, "in-6.png");
}

TEST_F(KolmTool, DebuggerLinesGoWhereTheyAreSent) {
  const Outcome outcome = Run("--debug-log - effects");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_NE(outcome.errors.find("Kolm: Kolm_VE_GetParameterRange\n"), std::string::npos);
  ExpectSuccess("effects --debug-log log");
  EXPECT_EQ(FileText(folder / "log"), outcome.errors);
}

TEST_F(KolmTool, ExplainsItsCommandLine) {
  for (const std::string command : {"", "effects ", "sheet ", "apply ", "store ", "store create ",
                                    "background ", "background-sheet ", "track ", "track-sheet "}) {
    SCOPED_TRACE(command);
    const Outcome outcome = Run(command + "--help");
    EXPECT_EQ(outcome.code, 0);
    EXPECT_NE(outcome.output.find("Usage: kolm"), std::string::npos) << outcome.output;
  }
  EXPECT_NE(Run("--help").output.find("7  the output exists already"), std::string::npos);
  EXPECT_EQ(Run("--version").output.substr(0, 5), "kolm ");
  ExpectFailure("", 2, "a command is missing; 'kolm --help' lists the commands");
  ExpectFailure("apply picture.png out.png", 2,
                "--effect is required\nExpected:\n  -e,--effect NAME|ID[:PARAM]");
  ExpectFailure("apply", 2, "See 'kolm apply --help'.\n");
  ExpectFailure("apply -e", 2, "--effect lacks its value\nExpected:\n  -e,--effect NAME");
  ExpectFailure("apply --bogus", 2,
                "'--bogus' is no option of 'kolm apply'; 'kolm apply --help' lists its options");
  ExpectFailure("apply -e 4 one.png two.png three.png", 2,
                "'three.png' is one argument too many\nUsage: kolm apply [OPTIONS] INPUT OUTPUT\n");
  ExpectFailure("--bogus", 2, "'--bogus' is no option of 'kolm'");
  ExpectFailure("sheet", 2, "OUTPUT is required");
  ExpectFailure("store", 2, "a command is missing; 'kolm store --help' lists the commands");
  ExpectFailure("store burn", 2, "'burn' is no command; 'kolm store --help' lists the commands");
  ExpectFailure("store append store.img", 2, "PICTURE is required");
  ExpectFailure("blur", 2, "'blur' is no command; 'kolm --help' lists the commands");
  ExpectFailure("effects --colour", 2, "--colour");
  ExpectFailure("effects --debug-log a --debug-log b", 2, "--debug-log is given more than once");
  ExpectFailure("background --record abc one.png two.png", 2,
                "--record: 'abc' cannot be used\nExpected:\n  --record N");
  ExpectFailure("bench --sizes 3", 2, "--sizes: '3' is no size; expected WIDTHxHEIGHT such as");
}

TEST_F(KolmTool, TakesNumbersWithinTheirRange) {
  for (const std::string number : {"nan", "-nan", "inf", "1", "10.1", "x", "''"}) {
    ExpectFailure("track --factor " + number + " in.png out.png", 2,
                  "cannot be used; expected a number from 1.01 to 10; see 'kolm track --help'");
  }
  for (const std::string number : {"nan", "inf", "-1", "3601"}) {
    ExpectFailure("bench --seconds " + number, 2,
                  "--seconds: '" + number + "' cannot be used; expected a number from 0 to 3600");
  }
  for (const std::string number : {"0", "-1", "nan", "1.5"}) {
    ExpectFailure("view --frames " + number, 2,
                  "--frames: '" + number + "' cannot be used; expected a whole number from 1;");
  }
  ExpectFailure("track --steps 100001 in.png out.png", 2, "a whole number from 1 to 100000");
}

TEST_F(KolmTool, TellsWhenNothingCanBePrinted) {
  Write("picture.png", SmallPicture(64, 48));
  ExpectSuccess("store create store.img picture.png");
  const std::vector<std::string> before = Names();
  for (const std::string command :
       {"effects", "--help", "--version", "apply --help", "bench --json --sizes 64x48 --seconds 0",
        "bench --sizes 64x48 --seconds 0", "store list store.img", "store verify store.img"}) {
    SCOPED_TRACE(command);
    const Outcome full = Run(command, "true", ">/dev/full");
    EXPECT_EQ(full.code, 8);
    EXPECT_NE(full.errors.find("cannot write to standard output: No space left on device; expected "
                               "a program that reads it, or a file with room for it\n"),
              std::string::npos)
        << full.errors;
    const Outcome closed = Run(command, "true", ">&-");
    EXPECT_EQ(closed.code, 8);
    EXPECT_NE(closed.errors.find("cannot write to standard output: Bad file descriptor"),
              std::string::npos)
        << closed.errors;
    // The reader is gone before the writer begins.
    const Outcome pipe = Run(command, "mkfifo pipe && exec 3<>pipe 4>pipe 3<&-", ">&4");
    EXPECT_EQ(pipe.code, 12);
    EXPECT_NE(pipe.errors.find("nobody reads standard output any more"), std::string::npos);
    fs::remove(folder / "pipe");
  }
  // What prints nothing needs no standard output, and no file takes its place.
  EXPECT_EQ(Run("apply -e sepia picture.png out.png", "true", ">&-").code, 0);
  EXPECT_EQ(Read("out.png").size(), cv::Size(64, 48));
  EXPECT_EQ(Run("effects --debug-log log", "true", ">&-").code, 8);
  EXPECT_EQ(FileText(folder / "log").find("sepia"), std::string::npos);
}

TEST_F(KolmTool, TellsWhereTemporaryFilesWouldGo) {
  Write("red.png", cv::Mat(48, 64, CV_8UC3, cv::Scalar(0, 0, 255)));
  ExpectSuccess("store create store.img red.png");
  ExpectFailure("background --store store.img red.png out.png", 8,
                "cannot make a temporary directory in '/nowhere': No such file or directory; "
                "expected a directory for temporary files in the variable TMPDIR",
                "export TMPDIR=/nowhere");
}

TEST_F(KolmTool, AppendsToAStoreAtTheSameTime) {
  Write("red.png", cv::Mat(48, 64, CV_8UC3, cv::Scalar(0, 0, 255)));
  ExpectSuccess("store create store.img red.png");
  const Outcome outcome =
      Run("store verify store.img", "for i in 1 2 3 4 5 6 7 8; do '" KOLM_TOOL
                                    "' store append store.img red.png & done; wait");
  EXPECT_EQ(outcome.output, "store.img: 9 records, whole\n") << outcome.errors;
}

TEST_F(KolmTool, LibrariesSayNothing) {
  Write("picture.png", SmallPicture(64, 48));
  Write("picture.jpg", SmallPicture(640, 480));
  // A colour profile that is none, behind the header and with its checksum.
  std::string png = FileText(folder / "picture.png");
  const std::string profile("\0\0\0\x04iCCPx\0\0\0\xC0\x31\x34\x67", 16);
  png.insert(33, profile);
  WriteText(folder / "profile.png", png);
  png[29] ^= 1;  // the header's checksum
  WriteText(folder / "broken.png", png);
  std::string jpeg = FileText(folder / "picture.jpg");
  WriteText(folder / "head.jpg", jpeg.substr(0, 300));
  jpeg.insert(jpeg.size() - 2, 20, 'x');
  WriteText(folder / "more.jpg", jpeg);
  WriteText(folder / "cut.ppm", "P6 10 10 255\nxx");
  WriteText(folder / "junk.mp4", std::string(3000, 'x'));
  for (const std::string name : {"profile.png", "more.jpg"}) {
    ExpectSuccess("apply -y -e sepia " + name + " out.png");
    ExpectSuccess("store create -y store.img " + name);
  }
  for (const std::string name : {"broken.png", "head.jpg", "cut.ppm"}) {
    EXPECT_EQ(Run("apply -e sepia " + name + " new.png").errors,
              "kolm: '" + name +
                  "' is not a whole picture of a known format; expected a PNG, JPEG, BMP, TIFF, "
                  "WebP or PNM file\n");
  }
  for (const std::string command : {"gallery junk.mp4 made", "track-sheet junk.mp4 new.png",
                                    "apply -e sepia junk.mp4 new.png", "view junk.mp4"}) {
    const Outcome outcome = Run(command, "unset DISPLAY WAYLAND_DISPLAY XDG_RUNTIME_DIR");
    EXPECT_EQ(outcome.code, command[0] == 'v' ? 13 : 3);
    EXPECT_EQ(outcome.errors.find("kolm: "), 0u) << outcome.errors;
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1) << outcome.errors;
  }
  EXPECT_FALSE(fs::exists(folder / "made"));
}

}  // namespace
}  // namespace kolm
