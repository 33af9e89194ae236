// A folder for each test, in which the tool runs as its users run it.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

namespace kolm {

namespace fs = std::filesystem;

inline std::string FileText(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteText(const fs::path& path, const std::string& text) {
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

  // Runs the tool in the test's folder, after the shell's `preparation`.
  Outcome Run(const std::string& arguments, const std::string& preparation = "true",
              const std::string& output = ">.output") const {
    const std::string command = "cd '" + folder.string() + "' && " + preparation +
                                " && '" KOLM_TOOL "' " + arguments + " " + output + " 2>.errors";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, FileText(folder / ".output"),
            FileText(folder / ".errors")};
  }

  // Expects the tool to fail with this code and message, leaving the folder as it was.
  void ExpectFailure(const std::string& arguments, int code, const std::string& message,
                     const std::string& preparation = "true") const {
    SCOPED_TRACE(arguments);
    const std::vector<std::string> before = Names();
    const Outcome outcome = Run(arguments, preparation);
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

}  // namespace kolm
