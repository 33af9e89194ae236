// Runs the tool as its users do and looks at what it says, returns and leaves behind.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::string FileText(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteText(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

struct Outcome {
  int code;
  std::string output, errors;
};

class KolmTool : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "kolm-tool-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder = pattern;
  }
  void TearDown() override { fs::remove_all(folder); }

  // Runs the tool in the test's folder.
  Outcome Run(const std::string& arguments) const {
    const std::string command =
        "cd '" + folder.string() + "' && '" KOLM_TOOL "' " + arguments + " >.output 2>.errors";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, FileText(folder / ".output"),
            FileText(folder / ".errors")};
  }

  // Expects the tool to fail with this code and message, leaving the folder as it was.
  void ExpectFailure(const std::string& arguments, int code, const std::string& message) const {
    SCOPED_TRACE(arguments);
    const std::vector<std::string> before = Names();
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.code, code);
    EXPECT_NE(outcome.errors.find(message), std::string::npos) << outcome.errors;
    EXPECT_EQ(Names(), before);
  }

  void ExpectSuccess(const std::string& arguments) const {
    SCOPED_TRACE(arguments);
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
  }

  // The folder's files but for those of Run.
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
      const std::string name = entry.path().filename().string();
      if (name != ".output" && name != ".errors") names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  void Write(const std::string& name, const cv::Mat& picture) const {
    ASSERT_TRUE(cv::imwrite((folder / name).string(), picture));
  }

  cv::Mat Read(const std::string& name) const {
    return cv::imread((folder / name).string(), cv::IMREAD_UNCHANGED);
  }

  fs::path folder;
};

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
  ExpectFailure("effects --debug-log missing/log", 8, "cannot write the debug log");
}

TEST_F(KolmTool, DebuggerLinesGoWhereTheyAreSent) {
  const Outcome outcome = Run("--debug-log - effects");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_NE(outcome.errors.find("Kolm: Kolm_VE_GetParameterRange\n"), std::string::npos);
  ExpectSuccess("effects --debug-log log");
  EXPECT_EQ(FileText(folder / "log"), outcome.errors);
}

TEST_F(KolmTool, ExplainsItsCommandLine) {
  for (const std::string command : {"", "effects ", "sheet ", "apply "}) {
    SCOPED_TRACE(command);
    const Outcome outcome = Run(command + "--help");
    EXPECT_EQ(outcome.code, 0);
    EXPECT_NE(outcome.output.find("Usage: kolm"), std::string::npos) << outcome.output;
  }
  EXPECT_NE(Run("--help").output.find("7  the output exists already"), std::string::npos);
  EXPECT_EQ(Run("--version").output.substr(0, 5), "kolm ");
  ExpectFailure("", 2, "A subcommand is required");
  ExpectFailure("apply picture.png out.png", 2, "--effect is required");
  ExpectFailure("sheet", 2, "OUTPUT is required");
  ExpectFailure("blur", 2, "subcommand is required");
  ExpectFailure("effects --colour", 2, "--colour");
}

}  // namespace
