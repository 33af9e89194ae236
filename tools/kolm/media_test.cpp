// Runs the tool on videos, pipes, sequences and a camera, whole and damaged ones.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <opencv2/core.hpp>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "module/kolm.h"
#include "platform/host/host_kernel.h"
#include "tools/kolm/tool_fixture.h"

namespace kolm {
namespace {

constexpr size_t kFrameBytes = 64 * 48 * 2;

class KolmMedia : public KolmTool {
 protected:
  void SetUp() override {
    KolmTool::SetUp();
    host::SetDebugSink([](const std::string&) {});
  }

  // The shell's result in the test's folder.
  Outcome Shell(const std::string& command) const {
    return Run("", "{ " + command + "\n} >.output 2>.errors; exit $?");
  }

  void FFmpeg(const std::string& arguments) const {
    const Outcome outcome = Shell("ffmpeg -nostdin -v error -y " + arguments);
    ASSERT_EQ(outcome.code, 0) << arguments << outcome.errors;
  }

  // A moving picture of 64 x 48 pixels at 10 frames a second.
  void MakeVideo(const std::string& output, int frames = 12,
                 const std::string& size = "64x48") const {
    FFmpeg("-f lavfi -i testsrc2=s=" + size + ":r=10 -frames:v " + std::to_string(frames) + " " +
           output);
  }

  void MakeRaw(int frames = 12) const { MakeVideo("-pix_fmt yuyv422 -f rawvideo in.yuv", frames); }

  int Frames(const std::string& name) const {
    return std::atoi(Probe(name,
                           "-count_frames -select_streams v:0 -show_entries "
                           "stream=nb_read_frames")
                         .c_str());
  }

  std::string Probe(const std::string& name, const std::string& arguments) const {
    std::string text = Shell("ffprobe -v error " + arguments + " -of csv=p=0 " + name).output;
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
  }

  std::string Text(const std::string& name) const { return FileText(folder / name); }

  // The frames of in.yuv under an effect, by a call of the module.
  std::string UnderEffect(const std::string& frames, uint32_t id, uint32_t parameter) const {
    EffectRoutine routine = nullptr;
    Kolm_VE_InitVideoEffect(id, &routine);
    std::string result(frames.size(), '\0');
    for (size_t at = 0; at < frames.size(); at += kFrameBytes) {
      Kolm_VE_RunVideoEffect(routine, reinterpret_cast<const uint8_t*>(&frames[at]),
                             reinterpret_cast<uint8_t*>(&result[at]), 64, 48, parameter);
    }
    return result;
  }
};

TEST_F(KolmMedia, RawFramesReachTheModuleAsTheyAre) {
  MakeRaw();
  const std::string source = Text("in.yuv");
  ASSERT_EQ(source.size(), 12 * kFrameBytes);
  const std::string blurred = UnderEffect(source, 5, 3), drawn = UnderEffect(blurred, 12, 0);
  ExpectSuccess("apply -e box-blur:3 -s 64x48 in.yuv blurred.yuv");
  EXPECT_EQ(Text("blurred.yuv"), blurred);
  ExpectSuccess("apply -e 5:3 -e sketch -s 64x48 -r 30 in.yuv drawn.yuv");
  EXPECT_EQ(Text("drawn.yuv"), drawn);
  EXPECT_EQ(Run("apply -e 5:3 -s 64x48 - - <in.yuv").output, blurred);
  EXPECT_EQ(
      Shell("cat in.yuv | taskset -c 0 '" KOLM_TOOL "' apply -e 5:3 -s 64x48 - - | cat").output,
      blurred);
}

TEST_F(KolmMedia, SplitsSourceAndResult) {
  MakeRaw(2);
  const std::string source = Text("in.yuv"), negative = UnderEffect(source, 13, 0);
  const std::string split = Run("apply -e negative --split -s 64x48 - - <in.yuv").output;
  ASSERT_EQ(split.size(), source.size());
  for (size_t i = 0; i < split.size(); ++i) {
    ASSERT_EQ(split[i], i % 128 < 64 ? source[i] : negative[i]) << i;
  }
}

TEST_F(KolmMedia, Yuv4MpegComesBackInItsForm) {
  for (const std::string format : {"yuv420p", "yuv422p"}) {
    SCOPED_TRACE(format);
    MakeVideo("-pix_fmt " + format + " in.y4m");
    ASSERT_EQ(Shell("'" KOLM_TOOL "' apply -e box-blur:0 - - <in.y4m >out.y4m").code, 0);
    EXPECT_EQ(Text("out.y4m").substr(0, 36),
              "YUV4MPEG2 W64 H48 F10:1 Ip A1:1 C42" + format.substr(5, 1));
    FFmpeg("-i in.y4m -f rawvideo in.raw");
    FFmpeg("-i out.y4m -f rawvideo out.raw");
    EXPECT_EQ(Text("out.raw"), Text("in.raw"));
  }
  EXPECT_EQ(Run("apply -e 3 --format rawvideo - - <in.y4m").output.size(), 12 * kFrameBytes);
  MakeRaw();
  EXPECT_EQ(Run("apply -e 3 --format yuv4mpegpipe -s 64x48 -r 15 in.yuv -").output.substr(0, 29),
            "YUV4MPEG2 W64 H48 F15:1 Ip A0");
}

TEST_F(KolmMedia, ReadsAndWritesVideosWithTheirSound) {
  FFmpeg("-f lavfi -i testsrc2=s=64x48:r=10 -f lavfi -i sine -t 1.2 -c:a aac in.mp4");
  const auto sound = [&](const std::string& name) {
    return Shell("ffmpeg -v error -i " + name +
                 " -map 0:a -c copy -f framehash -hash md5 - | "
                 "grep -v '^#' | sed 's/.*,//'")
        .output;
  };
  for (const std::string name : {"out.mp4", "out.mkv", "out.mov"}) {
    ExpectSuccess("apply -e negative in.mp4 " + name);
    EXPECT_EQ(Frames(name), 12) << name;
    FFmpeg("-i in.mp4 -map 0:a -c copy copied-" + name);
    const std::string copied = sound("copied-" + name);
    EXPECT_GT(copied.size(), 100U);
    EXPECT_EQ(sound(name), copied) << name;
    EXPECT_EQ(Probe(name, "-select_streams v -show_entries stream=codec_name,color_space"),
              "h264,smpte170m ");
  }
  const Outcome outcome = Run("apply -e negative in.mp4 out.webm");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_NE(outcome.errors.find("sound in aac is left out: the format 'webm'"), std::string::npos);
  EXPECT_EQ(Frames("out.webm"), 12);
  EXPECT_EQ(Run("apply --quiet -y -e negative in.mp4 out.webm").errors, "");
  ExpectSuccess("apply -e negative --codec ffv1 in.mp4 lossless.mkv");
  EXPECT_EQ(Probe("lossless.mkv", "-select_streams v -show_entries stream=codec_name,pix_fmt"),
            "ffv1,yuv422p ");
  ExpectSuccess("apply -e negative --crf 40 in.mp4 small.mp4");
#ifndef KOLM_SANITIZED  // libx265 loses a block of its own
  ExpectSuccess("apply -e negative --codec libx265 in.mp4 hevc.mkv");
#endif
  MakeVideo("square.mkv", 2, "64x64");
  ExpectSuccess("apply -e negative --codec libsvtav1 square.mkv av1.mkv");
  EXPECT_LT(fs::file_size(folder / "small.mp4"), fs::file_size(folder / "out.mp4"));
}

TEST_F(KolmMedia, ConvertsColourSpaces) {
  // 150, 80, 200 in red, green and blue.
  const std::string colour = "-f lavfi -i color=0x9650c8:s=64x48:r=10 -frames:v 2 ";
  FFmpeg(colour +
         "-vf scale=out_color_matrix=bt709:out_range=tv,format=yuv444p -colorspace bt709 "
         "-color_range tv -c:v ffv1 hd.mkv");
  FFmpeg(colour +
         "-vf scale=out_color_matrix=bt601:out_range=pc,format=yuv444p -colorspace "
         "smpte170m -color_range pc -c:v ffv1 full.mkv");
  FFmpeg(colour + "-c:v mjpeg -q:v 1 camera.avi");
  for (const std::string name : {"hd.mkv", "full.mkv", "camera.avi"}) {
    SCOPED_TRACE(name);
    ExpectSuccess("apply -y -e box-blur:0 " + name + " out-%d.png");
    const cv::Scalar mean = cv::mean(Read("out-1.png"));
    // Read with another matrix or range, green would be 10 off or more.
    EXPECT_NEAR(mean[2], 150, 5);
    EXPECT_NEAR(mean[1], 80, 5);
    EXPECT_NEAR(mean[0], 200, 5);
  }
}

TEST_F(KolmMedia, LeavesOutAnOddColumnAndUnpadsRows) {
  // Decoders pad rows of 34 pixels.
  MakeVideo("-c:v ffv1 -pix_fmt yuv422p in.mkv", 2, "34x21");
  ExpectSuccess("apply -e box-blur:0 --format rawvideo in.mkv out.yuv");
  FFmpeg("-i in.mkv -f rawvideo -pix_fmt yuyv422 expected.yuv");
  EXPECT_EQ(Text("out.yuv"), Text("expected.yuv"));

  FFmpeg("-f lavfi -i testsrc=s=33x21:r=10 -frames:v 2 -c:v ffv1 -pix_fmt yuv444p odd.mkv");
  const Outcome video = Run("apply -e box-blur:0 odd.mkv odd.mp4");
  EXPECT_EQ(video.code, 0) << video.errors;
  EXPECT_NE(video.errors.find("'odd.mkv' is 33 pixels wide; its last column is left out"),
            std::string::npos);
  EXPECT_EQ(Probe("odd.mp4", "-show_entries stream=width,height"), "32,21 ");

  const std::string rows(size_t{34} * 2 * 3, 'x');
  WriteText(folder / "raw.yuv", rows);
  const Outcome raw = Run("apply -e box-blur:0 -s 33x3 raw.yuv -");
  EXPECT_NE(raw.errors.find("'raw.yuv' is 33 pixels wide"), std::string::npos);
  EXPECT_EQ(raw.output, std::string(size_t{32} * 2 * 3, 'x'));
}

TEST_F(KolmMedia, NumberedSequences) {
  MakeVideo("-start_number 7 in-%03d.png", 5);
  ExpectSuccess("apply -e negative in-%03d.png out-%d.png");
  for (int number = 7; number < 12; ++number) {
    EXPECT_EQ(Read("out-" + std::to_string(number) + ".png").size(), cv::Size(64, 48));
  }
  ExpectSuccess("apply -e negative -r 5 in-%03d.png out.mp4");
  EXPECT_EQ(Frames("out.mp4"), 5);
  EXPECT_EQ(Probe("out.mp4", "-show_entries stream=r_frame_rate"), "5/1 ");
  ExpectFailure("apply -e 3 in-%03d.png out-%d.png", 7, "out-7.png' exists already");
  ExpectFailure("apply -e 3 missing-%03d.png out.mkv", 3, "there is no picture of such a name");
  fs::remove(folder / "in-008.png");
  EXPECT_EQ(
      Run("apply -e negative in-%03d.png gap-%d.png").errors,
      "kolm: 'in-%03d.png' lacks 1 of the pictures from 7 to 11; in a video the others follow "
      "one another\n");
  EXPECT_FALSE(fs::exists(folder / "gap-8.png"));
  EXPECT_TRUE(fs::exists(folder / "gap-11.png"));
  FFmpeg("-i in-007.png in-008.png");
  // One that cannot be read is left out; the others keep their numbers, also upon themselves.
  WriteText(folder / "in-010.png", "no picture at all\n");
  const Outcome outcome = Run("apply -e 3 in-%03d.png short.mkv");
  EXPECT_EQ(outcome.code, 11);
  EXPECT_NE(outcome.errors.find("in-010.png"), std::string::npos) << outcome.errors;
  EXPECT_EQ(Frames("short.mkv"), 4);
  ExpectSuccess("apply -e negative in-011.png expected.png");
  WriteText(folder / "in-007.png", "");
  EXPECT_EQ(Run("apply -y -e negative in-%03d.png in-%03d.png").code, 11);
  EXPECT_EQ(Text("in-010.png"), "no picture at all\n");
  EXPECT_EQ(Text("in-011.png"), Text("expected.png"));
}

TEST_F(KolmMedia, PicturesAndVideosMeet) {
  MakeVideo("picture.png", 1);
  ExpectSuccess("apply -e sepia picture.png still.mp4");
  EXPECT_EQ(Frames("still.mp4"), 1);
  MakeVideo("in.mkv", 3);
  ExpectFailure("apply -e sepia in.mkv out.png", 8,
                "more than one frame, the output is one picture; expected a video's name, or one "
                "with a place for a number");
}

TEST_F(KolmMedia, ScalesFramesThatChangeTheirSize) {
  MakeVideo("-c:v mpeg2video -bf 0 -f mpegts a.ts", 6, "64x48");
  MakeVideo("-c:v mpeg2video -bf 0 -f mpegts b.ts", 6, "96x80");
  WriteText(folder / "in.ts", Text("a.ts") + Text("b.ts"));
  const Outcome outcome = Run("apply -e 3 in.ts out.mkv");
  EXPECT_NE(outcome.errors.find("changes to 96 x 80 pixels; frames are scaled to the first one's "
                                "64 x 48 pixels"),
            std::string::npos)
      << outcome.errors;
  EXPECT_TRUE(outcome.code == 0 || outcome.code == 11) << outcome.code;
  EXPECT_EQ(Probe("out.mkv", "-show_entries stream=width,height"), "64,48 ");
  EXPECT_GE(Frames("out.mkv"), 11);
}

TEST_F(KolmMedia, KeepsWhatATruncatedVideoHolds) {
  FFmpeg("-f lavfi -i testsrc2=s=64x48:r=10 -t 4 -g 5 -movflags faststart in.mp4");
  for (const std::string name : {"in.mkv", "in.avi", "in.y4m"}) FFmpeg("-i in.mp4 -g 5 " + name);
  FFmpeg("-i in.mp4 -f rawvideo -pix_fmt yuyv422 in.yuv");
  for (const std::string name : {"in.mp4", "in.mkv", "in.avi", "in.y4m", "in.yuv"}) {
    SCOPED_TRACE(name);
    const std::string whole = Text(name);
    WriteText(folder / ("half" + name), whole.substr(0, whole.size() * 6 / 10 + 7));
    const std::string raw = name == "in.yuv" ? "-s 64x48 -r 10 " : "";
    std::string arguments = "apply -y -e 3 ";
    arguments.append(raw).append("half").append(name).append(" out.mkv");
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.code, 11);
    EXPECT_NE(outcome.errors.find("is damaged: "), std::string::npos) << outcome.errors;
    EXPECT_NE(outcome.errors.find("what was done until then is in 'out.mkv'"), std::string::npos);
    EXPECT_GE(Frames("out.mkv"), 8);
    EXPECT_LT(Frames("out.mkv"), 40);
  }
  EXPECT_EQ(Shell("head -c 30000 in.yuv | '" KOLM_TOOL "' apply -e 3 -s 64x48 - -").output.size(),
            4 * kFrameBytes);
}

TEST_F(KolmMedia, TimesMayBeginLate) {
  FFmpeg("-f lavfi -i testsrc2=s=64x48:r=10 -f lavfi -i sine -t 3 -c:a aac in.mp4");
  for (const std::string name : {"late.mkv", "late.mp4", "late.ts", "late.flv"}) {
    FFmpeg("-i in.mp4 -c copy -output_ts_offset 10 " + name);
    ExpectSuccess("apply -y -e 3 " + name + " out.mkv");
    EXPECT_EQ(Frames("out.mkv"), 30) << name;
    EXPECT_LT(std::atof(Probe("out.mkv", "-show_entries format=start_time").c_str()), 0.1);
  }
  const std::string whole = Text("late.mkv");
  WriteText(folder / "late.mkv", whole.substr(0, whole.size() * 6 / 10));
  EXPECT_EQ(Run("apply -y -e 3 late.mkv out.mkv").code, 11);
}

TEST_F(KolmMedia, TurnsATelephonesVideoUpright) {
  FFmpeg("-f lavfi -i testsrc=s=64x48:r=10 -frames:v 3 -c:v libx264 -crf 1 in.mp4");
  for (const std::string degrees : {"90", "180", "270"}) {
    SCOPED_TRACE(degrees);
    FFmpeg("-i in.mp4 -c copy -metadata:s:v rotate=" + degrees + " turned.mp4");
    FFmpeg("-i turned.mp4 -frames:v 1 expected.png");
    for (const std::string output : {"out.mkv", "out.mp4"}) {
      ExpectSuccess("apply -y -e box-blur:0 turned.mp4 " + output);
      EXPECT_EQ(Frames(output), 3);
      FFmpeg("-i " + output + " -frames:v 1 out.png");
      const cv::Mat expected = Read("expected.png"), out = Read("out.png");
      ASSERT_EQ(out.size(), expected.size());
      EXPECT_LT(cv::norm(out, expected, cv::NORM_L1) / static_cast<double>(out.total() * 3), 10);
    }
  }
}

TEST_F(KolmMedia, LeavesOutDamagedSound) {
  FFmpeg("-f lavfi -i testsrc2=s=64x48:r=10 -f lavfi -i sine -t 2 -c:a aac in.ts");
  std::string bytes = Text("in.ts");
  const size_t header = bytes.find("\xff\xf1", bytes.size() / 2);
  ASSERT_NE(header, std::string::npos);
  bytes[header] = 0x12;
  WriteText(folder / "bad.ts", bytes);
  for (const std::string name : {"out.mkv", "out.mp4"}) {
    const Outcome outcome = Run("apply -e 3 bad.ts " + name);
    EXPECT_EQ(outcome.code, 11);
    EXPECT_NE(outcome.errors.find("some packets of its sound are left out"), std::string::npos)
        << outcome.errors;
    EXPECT_EQ(Frames(name), 20);
    EXPECT_GT(std::atoi(Probe(name,
                              "-count_packets -select_streams a -show_entries "
                              "stream=nb_read_packets")
                            .c_str()),
              50);
  }
}

TEST_F(KolmMedia, TellsWhichOptionsAreLeftAside) {
  MakeVideo("in.mkv", 2);
  MakeVideo("in.png", 1);
  const auto errors = [&](const std::string& arguments) {
    const Outcome outcome = Run("apply -y -e 3 " + arguments + " out.mkv");
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(Probe("out.mkv", "-show_entries stream=width,height"), "64,48 ");
    return outcome.errors;
  };
  EXPECT_EQ(errors("-s 32x32 -r 5 in.mkv"),
            "kolm: 'in.mkv' tells its size itself: -s is left aside\n"
            "kolm: 'in.mkv' tells its rate itself: -r is left aside\n");
  EXPECT_EQ(errors("-s 32x32 in.png"),
            "kolm: 'in.png' is a picture, which tells its size itself: -s is left aside\n");
  MakeRaw(1);
  fs::rename(folder / "in.yuv", folder / "frame");
  EXPECT_EQ(errors("-s 64x48 frame"), "");
}

TEST_F(KolmMedia, TellsWhatIsNoVideo) {
  WriteText(folder / "empty.mp4", "");
  WriteText(folder / "text.mp4", "no video at all\n");
  FFmpeg("-f lavfi -i sine -t 0.1 sound.wav");
  MakeVideo("in.mp4");
  WriteText(folder / "start.mp4", Text("in.mp4").substr(0, 300));
  fs::create_directory(folder / "directory.mp4");
  ExpectFailure("apply -e 3 missing.mp4 out.mkv", 3, "No such file");
  ExpectFailure("apply -e 3 directory.mp4 out.mkv", 3, "it is a directory");
  ExpectFailure("apply -e 3 empty.mp4 out.mkv", 3, "it is empty");
  ExpectFailure("apply -e 3 text.mp4 out.mkv", 3, "neither picture nor video");
  ExpectFailure("apply -e 3 start.mp4 out.mkv", 3, "cannot read 'start.mp4'");
  ExpectFailure("apply -e 3 sound.wav out.mkv", 3, "there is no video in it");
  ExpectFailure("apply -e 3 - out.mkv </dev/null", 3, "it is empty");
  ExpectFailure("apply -e 3 - out.mkv <text.mp4", 3, "raw frames need -s WIDTHxHEIGHT");
  ExpectFailure("apply -e 3 -s 64x48 - out.mkv <text.mp4", 3, "expected frames of 6144 bytes");
  ExpectFailure("apply -e 3 -s 1x48 - out.mkv <in.mp4", 4, "expected a width of at least 2");
  ExpectFailure("apply -e 3 -s 40000x48 - out.mkv <in.mp4", 4, "too large: 40000 x 48 pixels");
  ExpectFailure(
      "apply -e 3 - out.mkv", 3, "standard input",
      "printf 'YUV4MPEG2 W-5 H9999999 F0:0\\nFRAME\\nxx' >hostile && exec <hostile && rm hostile");
  ExpectFailure("apply -e 3 -s 64 in.mp4 out.mkv", 2, "expected WIDTHxHEIGHT");
  ExpectFailure("apply -e 3 -r fast in.mp4 out.mkv", 2, "expected frames a second");
  ExpectFailure("apply -e 3 --codec h26x in.mp4 out.mkv", 8, "there is no video encoder 'h26x'");
  ExpectFailure("apply -e 3 --format mkv4 in.mp4 out.mkv", 8, "there is no video format 'mkv4'");
  ExpectFailure("apply -e 3 in.mp4 out.xyz", 8,
                "no video format has the extension '.xyz'; expected an extension such as .mp4");
  WriteText(folder / "in.yuv", std::string(kFrameBytes, 'x'));
  ExpectFailure("apply -e 3 in.yuv out.mkv", 3, "give -s WxH");
  ExpectFailure("apply -e 3 --codec ffv1 in.mp4 out.webm", 8, "cannot write 'out.webm'");
  FFmpeg("-f lavfi -i testsrc2=s=640x480:r=10 -frames:v 60 -c:v libx264 -qp 5 large.mp4");
  ExpectFailure("apply -e 3 - out.mkv", 3, "can have its index at its end",
                "mkfifo pipe && (cat large.mp4 >pipe 2>/dev/null &) && exec <pipe && rm pipe");
  const Outcome terminal =
      Shell("script -qec \"'" KOLM_TOOL "' apply -e 3 in.mp4 -\" /dev/null </dev/null");
  EXPECT_EQ(terminal.code, 8);
  EXPECT_EQ(terminal.output,
            "kolm: cannot write frames to a terminal; expected the standard output redirected to a "
            "program or file\r\n");
  // A list does not reach for other files.
  WriteText(folder / "list.m3u8",
            "#EXTM3U\n#EXTINF:1,\nhttp://localhost:1/in.ts\n#EXT-X-ENDLIST\n");
  ExpectFailure("apply -e 3 list.m3u8 out.mkv", 3, "cannot read 'list.m3u8'");
}

TEST_F(KolmMedia, SurvivesHostileVideos) {
  MakeVideo("-c:v mpeg4 in.avi");
  MakeVideo("in.mkv");
  MakeVideo("-movflags faststart in.mp4");
  MakeVideo("in.y4m");
  const uint32_t seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (const std::string name : {"in.avi", "in.mkv", "in.mp4", "in.y4m"}) {
    const std::string whole = Text(name);
    for (int round = 0; round < 3; ++round) {
      std::string bytes = whole;
      for (int i = 0; i < 40; ++i) bytes[random() % bytes.size()] = static_cast<char>(random());
      WriteText(folder / ("bad-" + name), bytes);
      const int code = Run("apply -y -e 3 bad-" + name + " out.mkv").code;
      EXPECT_TRUE(code == 0 || code == 3 || code == 4 || code == 11) << name << ' ' << code;
    }
  }
}

TEST_F(KolmMedia, KeepsAnExistingVideo) {
  MakeVideo("in.mkv");
  WriteText(folder / "out.mkv", "precious");
  ExpectFailure("apply -e 3 in.mkv out.mkv", 7, "exists already; give -y");
  EXPECT_EQ(Text("out.mkv"), "precious");
  ExpectSuccess("apply -y -e 3 in.mkv in.mkv");
  EXPECT_EQ(Frames("in.mkv"), 12);
  // A link stays one.
  fs::create_symlink("out.mkv", folder / "link.mkv");
  ExpectSuccess("apply -y -e 3 in.mkv link.mkv");
  EXPECT_TRUE(fs::is_symlink(folder / "link.mkv"));
  EXPECT_EQ(Frames("out.mkv"), 12);
}

TEST_F(KolmMedia, KeepsAnInputThatIsTheOutputAsWell) {
  MakeVideo("-g 5 whole.mkv", 60);
  const std::string whole = Text("whole.mkv"), cut = whole.substr(0, whole.size() * 6 / 10);
  WriteText(folder / "in.mkv", cut);
  const std::regex part(
      "INPUT is as it was; what was done until then is in '\\./(in\\.part-[0-9]+\\.mkv)'");
  const auto expectPart = [&](const Outcome& outcome, int code) {
    EXPECT_EQ(outcome.code, code);
    std::smatch match;
    ASSERT_TRUE(std::regex_search(outcome.errors, match, part)) << outcome.errors;
    EXPECT_GE(Frames(match[1].str()), 5);
    fs::remove(folder / match[1].str());
  };
  expectPart(Run("apply -y -e 3 in.mkv ./in.mkv"), 11);
  EXPECT_TRUE(Text("in.mkv") == cut);

  // By another name, too.
  const Outcome piped = Run("apply -y -e 3 - in.mkv <in.mkv");
  EXPECT_EQ(piped.code, 11);
  EXPECT_NE(piped.errors.find("INPUT is as it was"), std::string::npos) << piped.errors;
  EXPECT_TRUE(Text("in.mkv") == cut);
  ExpectFailure("--debug-log in.mkv apply -y -e 3 in.mkv out.mkv", 2, "is named as another file");
  ExpectFailure("track --debug-log=new --trace=new in.mkv out.mkv", 2, "is named as another file");
  EXPECT_TRUE(Text("in.mkv") == cut);

  // So long that the signal comes before the end.
  MakeRaw(1);
  fs::create_hard_link(folder / "in.yuv", folder / "same.yuv");
  const std::string source = Text("in.yuv");
  constexpr uintmax_t kBytes = uintmax_t{320} * 240 * 2 * 2000;
  fs::resize_file(folder / "in.yuv", kBytes);
  const Outcome stopped = Shell(
      "'" KOLM_TOOL
      "' apply -y -e box-blur:8 -s 320x240 in.yuv same.yuv & tool=$!; for i in $(seq 500); do "
      "ls -A | grep -q '^\\.same' && break; sleep 0.01; done; kill -INT $tool; wait $tool");
  EXPECT_EQ(stopped.code, 130) << stopped.errors;
  EXPECT_NE(stopped.errors.find("INPUT is as it was"), std::string::npos) << stopped.errors;
  EXPECT_EQ(fs::file_size(folder / "same.yuv"), kBytes);
  EXPECT_TRUE(fs::equivalent(folder / "in.yuv", folder / "same.yuv"));
  EXPECT_EQ(Shell("head -c 6144 in.yuv").output, source);
}

TEST_F(KolmMedia, StopsASequence) {
  MakeVideo("in-0.png", 1, "640x480");
  for (int number = 1; number < 100; ++number) {
    fs::create_hard_link(folder / "in-0.png", folder / ("in-" + std::to_string(number) + ".png"));
  }
  const Outcome outcome =
      Shell("'" KOLM_TOOL
            "' apply -e box-blur in-%d.png out-%02d.png & tool=$!; for i in $(seq 500); do ls | "
            "grep -q ^out && break; sleep 0.01; done; kill -INT $tool; wait $tool");
  EXPECT_EQ(outcome.code, 130) << outcome.errors;
  EXPECT_TRUE(fs::exists(folder / "out-00.png"));
  EXPECT_FALSE(fs::exists(folder / "out-99.png"));
}

TEST_F(KolmMedia, KeepsAResultThatCannotHaveItsName) {
  MakeRaw();
  ASSERT_EQ(Shell("mkfifo pipe").code, 0);
  // Another file of this name comes while the tool works.
  const Outcome outcome =
      Shell("'" KOLM_TOOL
            "' apply -e 3 -s 64x48 pipe out.mkv & tool=$!; (cat in.yuv; for i in $(seq 500); do "
            "sleep 0.01; ls -A | grep -q '^\\.out' && break; done; echo mine >out.mkv) >pipe; wait "
            "$tool");
  EXPECT_EQ(outcome.code, 7);
  EXPECT_EQ(Text("out.mkv"), "mine\n");
  const std::regex part("'(out\\.part-[0-9]+\\.mkv)'");
  std::smatch match;
  ASSERT_TRUE(std::regex_search(outcome.errors, match, part)) << outcome.errors;
  EXPECT_EQ(Frames(match[1].str()), 12);
}

TEST_F(KolmMedia, LongNamesAndNumbersOfOldProcessesDoNotMatter) {
  MakeVideo("in.mkv");
  const std::string name = std::string(246, 'y') + ".mkv";
  ExpectSuccess("apply -e 3 in.mkv " + name);
  EXPECT_EQ(Frames(name), 12);
  // Whatever the process's number is, it is that of a file that was left.
  EXPECT_EQ(
      Shell("sh -c 'touch .out.mkv.$$ && exec \"" KOLM_TOOL "\" apply -e 3 in.mkv out.mkv'").code,
      0);
  EXPECT_EQ(Frames("out.mkv"), 12);
}

TEST_F(KolmMedia, FollowsAClockThatJumps) {
  FFmpeg("-f lavfi -i testsrc2=s=64x48:r=25 -f lavfi -i sine -t 2 -c:v mpeg2video -c:a mp2 in.mpg");
  FFmpeg("-i in.mpg -c copy -output_ts_offset 3600 late.ts");
  FFmpeg("-i in.mpg -c copy in.ts");
  WriteText(folder / "again.mpg", Text("in.mpg") + Text("in.mpg"));
  WriteText(folder / "again.ts", Text("in.ts") + Text("in.ts"));
  WriteText(folder / "jump.ts", Text("in.ts") + Text("late.ts"));
  for (const std::string name : {"again.mpg", "again.ts", "jump.ts"}) {
    SCOPED_TRACE(name);
    const Outcome outcome = Run("apply -y -e 3 " + name + " out.mkv");
    EXPECT_TRUE(outcome.code == 0 || outcome.code == 11) << outcome.code;
    EXPECT_NEAR(Frames("out.mkv"), 100, 3);
    EXPECT_NEAR(std::atof(Probe("out.mkv", "-show_entries format=duration").c_str()), 4, 0.2);
    EXPECT_GT(std::atoi(Probe("out.mkv",
                              "-count_packets -select_streams a -show_entries "
                              "stream=nb_read_packets")
                            .c_str()),
              140);
  }
  // The clock begins before 0.
  FFmpeg("-i in.mpg -c copy -output_ts_offset 95441 wrap.ts");
  ExpectSuccess("apply -e 3 wrap.ts out.mp4");
  EXPECT_EQ(Frames("out.mp4"), 50);
}

TEST_F(KolmMedia, AStreamMayPause) {
  for (const std::string name : {"gap.ts", "gap.mpg"}) {
    FFmpeg(
        "-f lavfi -i testsrc2=s=64x48:r=25 -f lavfi -i sine -t 30 -af "
        "\"aselect='lt(t,5)+gt(t,18)'\" -c:v mpeg2video -c:a mp2 " +
        name);
  }
  // The header promises frames of a fifth of their rate.
  FFmpeg(
      "-f lavfi -i testsrc2=s=64x48:r=25 -f lavfi -i sine -t 4 -c:v libx264 -bf 0 -bsf:v "
      "h264_metadata=tick_rate=10 -c:a mp2 slow.ts");
  const auto last = [&](const std::string& name, const std::string& streams) {
    const std::string times =
        Probe(name, "-select_streams " + streams + " -show_entries packet=pts_time");
    return std::atof(times.substr(times.rfind(' ', times.size() - 2) + 1).c_str());
  };
  for (const std::string name : {"gap.ts", "gap.mpg"}) {
    ExpectSuccess("apply -y -e 3 " + name + " out.mkv");
    EXPECT_NEAR(last("out.mkv", "a"), 30, 0.5) << name;
    EXPECT_NEAR(last("out.mkv", "v"), 30, 0.5) << name;
  }
  ExpectSuccess("apply -y -e 3 slow.ts out.mkv");
  EXPECT_NEAR(last("out.mkv", "v"), 4, 0.2);
  EXPECT_NEAR(last("out.mkv", "a"), 4, 0.2);
}

TEST_F(KolmMedia, TheLastFrameMayLast) {
  FFmpeg(
      "-f lavfi -i testsrc2=s=64x48:r=10 -frames:v 20 -vf \"setpts='if(gt(N,18),PTS+3/TB,PTS)'\" "
      "-vsync vfr in.gif");
  for (const std::string name : {"in.mkv", "in.flv"}) {
    FFmpeg("-i in.gif -vsync vfr " + name);
    ExpectSuccess("apply -y -e 3 " + name + " out.mkv");
    EXPECT_EQ(Frames("out.mkv"), Frames(name)) << name;
    const std::string whole = Text(name);
    WriteText(folder / name, whole.substr(0, whole.size() - 100));
    EXPECT_EQ(Run("apply -y -e 3 " + name + " out.mkv").code, 11) << name;
  }
}

TEST_F(KolmMedia, TimesFitTheFormatsClock) {
  MakeVideo("-vf setpts=N/120/TB -r 120 fast.mkv", 30);
  ExpectSuccess("apply -e 3 fast.mkv out.gif");
  EXPECT_EQ(Frames("out.gif"), 30);
  // From a clock of milliseconds.
  FFmpeg("-f lavfi -i testsrc2=s=64x48:r=30000/1001 -frames:v 60 even.mkv");
  ExpectSuccess("apply -e 3 even.mkv even.mp4");
  EXPECT_EQ(Probe("even.mp4", "-show_entries stream=r_frame_rate,avg_frame_rate"),
            "30000/1001,30000/1001 ");
  FFmpeg(
      "-f lavfi -i testsrc2=s=64x48:r=1 -f lavfi -i sine -t 3 -vf settb=1/1000,setpts=1000*N+470 "
      "-vsync passthrough "
      "-enc_time_base 1/1000 -c:a aac "
      "late.mkv");
  ExpectSuccess("apply -e 3 late.mkv late.mp4");
  EXPECT_NEAR(
      std::atof(Probe("late.mp4", "-select_streams v -show_entries stream=start_time").c_str()),
      0.47, 0.03);
  // 25 frames a second that come up to 8 ms early or late.
  FFmpeg(
      "-f lavfi -i testsrc2=s=64x48:r=25 -f lavfi -i sine -t 4 -vf "
      "\"settb=1/1000,setpts='40*N+mod(N*7,17)-8+20'\" -vsync passthrough -enc_time_base 1/1000 "
      "-c:a aac jitter.mkv");
  ExpectSuccess("apply -q -e 3 jitter.mkv out.y4m");
  EXPECT_GE(Frames("jitter.mkv"), 99);
  EXPECT_EQ(Frames("out.y4m"), Frames("jitter.mkv"));
}

TEST_F(KolmMedia, PassesOnWhatSoundTheFormatHolds) {
  FFmpeg(
      "-f lavfi -i testsrc2=s=64x48:r=25 -f lavfi -i sine -t 0.4 -metadata title=Tea "
      "-metadata:s:a:0 language=fra -c:a aac in.mp4");
  FFmpeg("-i in.mp4 -c:v copy -c:a wmav2 wma.mkv");
  FFmpeg("-i in.mp4 -c:v copy -c:a flac flac.mkv");
  ExpectSuccess("apply -e 3 wma.mkv out.mkv");
  EXPECT_EQ(Probe("out.mkv", "-select_streams a -show_entries stream=codec_name"), "wmav2 ");
  FFmpeg("-i in.mp4 -map 0:v -map 0:a -map 0:a -c copy two.mp4");
  for (const std::string arguments :
       {"two.mp4 out.flv", "in.mp4 out.mpg", "flac.mkv out.mp4", "flac.mkv out.ts"}) {
    const Outcome outcome = Run("apply -y -e 3 " + arguments);
    EXPECT_EQ(outcome.code, 0) << arguments;
    EXPECT_NE(outcome.errors.find(" is left out: the format '"), std::string::npos) << arguments;
    EXPECT_EQ(Frames(arguments.substr(arguments.find(' ') + 1)), 10);
  }
  ExpectSuccess("apply -e 3 in.mp4 labels.mkv");
  EXPECT_EQ(Probe("labels.mkv", "-show_entries format_tags=title"), "Tea ");
  EXPECT_EQ(Probe("labels.mkv", "-select_streams a -show_entries stream_tags=language"), "fra ");
}

TEST_F(KolmMedia, KeepsTheTimeOfFramesOfVariableLength) {
  FFmpeg(
      "-f lavfi -i testsrc2=s=64x48:r=10 -frames:v 20 -vf \"setpts='if(gt(N,9),PTS+2/TB,PTS)'\" "
      "-vsync vfr in.mkv");
  ASSERT_EQ(Frames("in.mkv"), 20);
  const Outcome outcome = Run("apply -e 3 in.mkv out.y4m");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_NE(outcome.errors.find("some frames are repeated"), std::string::npos) << outcome.errors;
  EXPECT_EQ(Frames("out.y4m"), 40);
  // Rates that an encoder does not have.
  FFmpeg("-f lavfi -i testsrc2=s=64x48:r=10800000/361417 -frames:v 20 -c:v ffv1 odd.nut");
  for (const std::string name : {"odd.avi", "odd.mpg", "odd.ts"}) {
    ExpectSuccess("apply -e 3 odd.nut " + name);
    EXPECT_EQ(Frames(name), 20) << name;
    EXPECT_NEAR(std::atof(Probe(name, "-show_entries format=duration").c_str()), 0.67, 0.25);
  }
}

TEST_F(KolmMedia, KeepsWhatAFullDiskHolds) {
  MakeVideo("in.mkv", 60);
  // Blocks of 512 bytes.
  const Outcome outcome = Run("apply -e 3 in.mkv out.y4m", "ulimit -f 100");
  EXPECT_EQ(outcome.code, 8);
  const std::regex part(
      "File too large.*what was done until then is in "
      "'(out\\.part-[0-9]+\\.y4m)'");
  std::smatch match;
  ASSERT_TRUE(std::regex_search(outcome.errors, match, part)) << outcome.errors;
  EXPECT_EQ(Names(), (std::vector<std::string>{"in.mkv", match[1].str()}));
  EXPECT_GE(Frames(match[1].str()), 5);
  for (const std::string form : {"rawvideo", "yuv4mpegpipe"}) {
    EXPECT_EQ(Shell("'" KOLM_TOOL "' apply -e 3 --format " + form + " in.mkv - >/dev/full").code,
              8);
  }
  ExpectFailure("apply -y -e 3 in.mkv /dev/full", 8,
                "it is not a regular file; expected the name of a file, or - with");
}

TEST_F(KolmMedia, KeepsAnMp4ThatCanBePlayedWhereTheDiskIsFull) {
  FFmpeg("-f lavfi -i testsrc2=s=320x240:r=10 -frames:v 200 -c:v ffv1 in.mkv");
  const Outcome outcome = Run("apply -e 13 --crf 4 in.mkv out.mp4", "ulimit -f 2000");
  EXPECT_EQ(outcome.code, 8);
  const std::regex part(
      "File too large; expected room for it.*; what was done until then is in "
      "'(out\\.part-[0-9]+\\.mp4)'");
  std::smatch match;
  ASSERT_TRUE(std::regex_search(outcome.errors, match, part)) << outcome.errors;
  EXPECT_EQ(Names(), (std::vector<std::string>{"in.mkv", match[1].str()}));
  EXPECT_GE(Frames(match[1].str()), 5);
  EXPECT_EQ(Shell("ffmpeg -v error -i " + match[1].str() + " -f null -").errors, "");
  // What fits is there, and takes no more of the disk than its length.
  ExpectSuccess("apply -e 13 --crf 4 in.mkv whole.mp4");
  EXPECT_EQ(Frames("whole.mp4"), 200);
  struct stat status;
  ASSERT_EQ(stat((folder / "whole.mp4").c_str(), &status), 0);
  EXPECT_LT(status.st_blocks * 512, status.st_size + 65536);
}

TEST_F(KolmMedia, WaitsForAReaderThatDoesNotBlock) {
  MakeRaw(300);
  const Outcome outcome = Shell(
      "python3 -c 'import os,subprocess,sys,time; r,w=os.pipe(); os.set_blocking(w,False); "
      "p=subprocess.Popen(sys.argv[1:],stdout=w); os.close(w); time.sleep(0.5); "
      "n=sum(len(b) for b in iter(lambda:os.read(r,65536),b\"\")); print(n, p.wait())' '" KOLM_TOOL
      "' apply -e 3 -s 64x48 in.yuv -");
  EXPECT_EQ(outcome.output, std::to_string(300 * kFrameBytes) + " 0\n") << outcome.errors;
}

TEST_F(KolmMedia, EndsWhenNobodyReads) {
  MakeVideo("in.mkv", 100);
  for (const std::string form : {"rawvideo", "yuv4mpegpipe"}) {
    const Outcome outcome = Shell("('" KOLM_TOOL "' apply -e 3 --format " + form +
                                  " in.mkv -; echo $? >code) | head -c 100 >/dev/null");
    EXPECT_EQ(Text("code"), "12\n");
    EXPECT_NE(outcome.errors.find("nobody reads standard output any more"), std::string::npos)
        << outcome.errors;
  }
}

TEST_F(KolmMedia, FinishesTheFileWhenStopped) {
  MakeRaw();
  for (const std::string signal : {"INT", "TERM", "HUP"}) {
    for (const std::string name : {"out.mp4", "out.mkv", "out.yuv"}) {
      SCOPED_TRACE(name);
      // The input stays open, so that only the signal ends the run. By then the tool has read what
      // there is; where it has not on a busy machine, frames would be missing.
      const Outcome outcome = Shell(
          std::string("signal=").append(signal).append(" name=").append(name) +
          "; mkfifo pipe; (cat in.yuv; exec sleep 60) >pipe & writer=$!; '" KOLM_TOOL
          "' apply -y -e 3 -s 64x48 - $name <pipe & tool=$!; for i in $(seq 100); do sleep 0.02; "
          "ls -A | grep -q '^\\.out' && break; done; sleep 1.5; kill -$signal $tool; wait $tool; "
          "code=$?; kill $writer; rm pipe; (exit $code)");
      EXPECT_EQ(outcome.code, 130);
      EXPECT_NE(outcome.errors.find("stopped; what was done until then is in '" + name + "'"),
                std::string::npos)
          << outcome.errors;
      if (name == "out.yuv") {
        EXPECT_EQ(Text(name).size(), 12 * kFrameBytes);
      } else {
        EXPECT_EQ(Frames(name), 12);
      }
    }
  }
}

TEST_F(KolmMedia, LeavesNothingAtTheSecondSignal) {
  MakeRaw();
  ASSERT_EQ(Shell("mkfifo pipe").code, 0);
  for (const std::string second : {"INT", "HUP"}) {
    SCOPED_TRACE(second);
    // Both come while the tool stands still, so that it cannot end in between.
    const Outcome outcome =
        Shell("(cat in.yuv; exec sleep 60) >pipe & writer=$!; '" KOLM_TOOL
              "' apply -e 3 -s 64x48 pipe out.mp4 & tool=$!; for i in $(seq 500); do sleep 0.02; "
              "ls -A | grep -q '^\\.out\\.mp4' && echo begun && break; done; kill -STOP $tool; "
              "kill -TERM $tool; kill -" +
              second + " $tool; kill -CONT $tool; wait $tool; code=$?; kill $writer; exit $code");
    EXPECT_EQ(outcome.output, "begun\n");
    EXPECT_GT(outcome.code, 128) << outcome.errors;
    EXPECT_EQ(Names(), (std::vector<std::string>{"in.yuv", "pipe"}));
  }
}

TEST_F(KolmMedia, WaitsForANamedPipe) {
  MakeRaw();
  ASSERT_EQ(Shell("mkfifo pipe").code, 0);
  for (const std::string signal : {"INT", "TERM", "HUP"}) {
    const Outcome outcome =
        Shell("'" KOLM_TOOL
              "' apply -e 3 pipe out.mkv & tool=$!; for i in $(seq 500); do ls -l /proc/$tool/fd "
              "| grep -q 'pipe$' && break; sleep 0.02; done; kill -" +
              signal + " $tool; wait $tool");
    EXPECT_EQ(outcome.code, 130);
    EXPECT_NE(outcome.errors.find("stopped before the first frame"), std::string::npos);
  }
  EXPECT_EQ(Names(), (std::vector<std::string>{"in.yuv", "pipe"}));
  EXPECT_EQ(Shell("(sleep 0.2; cat in.yuv >pipe) & '" KOLM_TOOL
                  "' apply -e 5:0 -s 64x48 pipe out.yuv; code=$?; wait; exit $code")
                .code,
            0);
  EXPECT_EQ(Text("out.yuv"), Text("in.yuv"));
  MakeVideo("in.y4m");
  EXPECT_EQ(Shell("cat in.y4m >pipe & '" KOLM_TOOL "' apply -e 3 pipe out.mkv").code, 0);
  EXPECT_EQ(Frames("out.mkv"), 12);
}

TEST_F(KolmMedia, ShowsProgressOnATerminalOnly) {
  MakeRaw(12);
  const std::string slowly = "(cat in.yuv; sleep 0.4; cat in.yuv)";
  const auto onTerminal = [&](const std::string& option) {
    return Shell("script -qec \"" + slowly + " | '" KOLM_TOOL "' apply -y " + option +
                 " -e 3 -s 64x48 - out.yuv\" /dev/null </dev/null")
        .output;
  };
  EXPECT_NE(onTerminal("").find(" fps"), std::string::npos);
  EXPECT_EQ(onTerminal("--quiet"), "");
  const Outcome outcome = Shell(slowly + " | '" KOLM_TOOL "' apply -y -e 3 -s 64x48 - out.yuv");
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(Text("out.yuv").size(), 24 * kFrameBytes);
}

#ifndef KOLM_SANITIZED
// Of the tool alone, in kilobytes.
int64_t PeakMemory(const std::string& command) {
  const pid_t child = fork();
  if (child == 0) {
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  int status = 0;
  rusage usage = {};
  wait4(child, &status, 0, &usage);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command;
  return usage.ru_maxrss;
}

TEST_F(KolmMedia, MemoryDoesNotGrowWithTheVideo) {
  const auto peak = [&](int frames) {
    fs::resize_file((WriteText(folder / "in.yuv", ""), folder / "in.yuv"),
                    static_cast<uintmax_t>(frames) * 640 * 360 * 2);
    return PeakMemory("cd '" + folder.string() +
                      "' && exec '" KOLM_TOOL "' apply -e 3 -s 640x360 in.yuv - >/dev/null");
  };
  const int64_t few = peak(20), many = peak(1000);
  EXPECT_LT(many, few + 8 * 1024);
}

TEST_F(KolmMedia, ReadsACameraUntilItGoesAway) {
  const auto camera = [&](const std::string& arguments, const std::string& frames) {
    return Run(arguments, "export LD_PRELOAD='" KOLM_FAKE_CAMERA "' FAKE_CAMERA_FRAMES=" + frames);
  };
  const Outcome outcome = camera("apply -e box-blur:0 -s 64x48 -r 30 /dev/video7 out.yuv", "9");
  EXPECT_EQ(outcome.code, 11);
  EXPECT_NE(outcome.errors.find("breaks off: No such device"), std::string::npos) << outcome.errors;
  const std::string frames = Text("out.yuv");
  ASSERT_EQ(frames.size(), 9 * kFrameBytes);
  for (size_t i = 0; i < frames.size(); ++i) {
    ASSERT_EQ(static_cast<size_t>(frames[i]), 16 + i / kFrameBytes) << i;
  }
  // Stopped while the camera has no frame.
  const Outcome stopped =
      Shell("export FAKE_CAMERA_FRAMES=5 FAKE_CAMERA_STAYS=1; LD_PRELOAD='" KOLM_FAKE_CAMERA
            "' '" KOLM_TOOL
            "' apply -e 3 /dev/video7 out.mkv & tool=$!; sleep 1; kill -INT $tool; "
            "wait $tool");
  EXPECT_EQ(stopped.code, 130) << stopped.errors;
  EXPECT_EQ(Frames("out.mkv"), 5);
  ExpectFailure("apply -e 3 /dev/video99 none.mkv", 3, "expected a camera that V4L2 knows");
}
#endif

TEST_F(KolmMedia, ReplacesTheBackgroundOfAVideo) {
  MakeVideo("-c:v ffv1 -pix_fmt yuv422p in.mkv", 6);
  FFmpeg("-f lavfi -i color=red:s=640x480 -frames:v 1 red.png");
  ExpectSuccess("store create store.img red.png");
  ExpectSuccess("background --store store.img in.mkv out-%d.png");
  for (int number = 1; number <= 6; ++number) {
    const cv::Scalar mean = cv::mean(Read("out-" + std::to_string(number) + ".png"));
    EXPECT_NEAR(mean[2], 254, 6);
    EXPECT_NEAR(mean[1], 0, 4);
  }
}

TEST_F(KolmMedia, TracksFaces) {
  MakeVideo("-c:v ffv1 -pix_fmt yuv422p in.mkv", 5, "320x240");
  ExpectFailure("track --detect 9x9 in.mkv out.mkv", 2, "the width a multiple of 4");
  ExpectFailure("track --steps 0 in.mkv out.mkv", 2, "--steps");
  ExpectFailure("track --factor 1 in.mkv out.mkv", 2, "--factor");
  // Nobody is in the picture: it stays as it is.
  ExpectSuccess("track --trace trace.jsonl in.mkv out.yuv");
  FFmpeg("-i in.mkv -f rawvideo -pix_fmt yuyv422 in.yuv");
  EXPECT_EQ(Text("out.yuv"), Text("in.yuv"));
  const std::regex line(
      "\\{\"frame\":[0-4],\"box\":null,\"target\":\\[0,0,320,240\\],\"crop\":\\[0,0,320,240\\],"
      "\"stepIndex\":9,\"missCount\":0,\"microseconds\":[0-9]+\\}");
  std::istringstream trace(Text("trace.jsonl"));
  int lines = 0;
  for (std::string each; std::getline(trace, each); ++lines) {
    EXPECT_TRUE(std::regex_match(each, line)) << each;
  }
  EXPECT_EQ(lines, 5);
  ExpectFailure("track --trace trace.jsonl in.mkv new.mkv", 7, "'trace.jsonl' exists already");
  ExpectFailure("track -y --trace in.mkv in.mkv new.mkv", 2, "'in.mkv' is INPUT itself");
  ExpectFailure("track -y --trace ./new.mkv in.mkv new.mkv", 2, "'./new.mkv' is OUTPUT itself");
  ExpectFailure("track --trace - in.mkv -", 2, "'-' is OUTPUT itself");
  // A trace that cannot have its name is kept.
  const Outcome taken = Shell("'" KOLM_TOOL
                              "' track --trace t.jsonl in.mkv taken.mkv & tool=$!; for i in $(seq "
                              "500); do ls -A | grep -q '^\\.t' && break; sleep 0.005; done; echo "
                              "mine >t.jsonl; wait $tool");
  EXPECT_EQ(taken.code, 7);
  EXPECT_EQ(Text("t.jsonl"), "mine\n");
  std::smatch part;
  ASSERT_TRUE(std::regex_search(taken.errors, part, std::regex("its trace is in '(t.part-[^']+)'")))
      << taken.errors;
  const std::string kept = Text(part[1].str());
  EXPECT_EQ(std::count(kept.begin(), kept.end(), '\n'), 5);
  const std::string lines5 = Run("track --trace - in.mkv new.mkv").output;
  EXPECT_EQ(std::count(lines5.begin(), lines5.end(), '\n'), 5);
  ExpectSuccess("track -y --overlay in.mkv out.yuv");
  EXPECT_NE(Text("out.yuv"), Text("in.yuv"));
}

}  // namespace
}  // namespace kolm
