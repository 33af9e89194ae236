// A crash is reported from a signal handler or a sanitizer's last call, then left to whoever
// handled it before.
#include "tests/random_case.h"

#include <gtest/gtest.h>
#include <sanitizer/common_interface_defs.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <optional>

#include "tests/guarded_run.h"

// Defined where a sanitizer is linked in.
#pragma weak __sanitizer_set_death_callback

namespace kolm {
namespace {

char caseInProgress[512];
char howToRepeat[512];

constexpr std::array kCrashSignals = {SIGSEGV, SIGBUS, SIGABRT};
std::array<struct sigaction, kCrashSignals.size()> previousActions;

void Write(const char* text) {
  if (write(STDERR_FILENO, text, std::strlen(text)) < 0) _exit(1);
}

void ReportCrash() {
  Write("crash in ");
  Write(caseInProgress);
  Write("\n  ");
  Write(RunInProgress());
  Write("\n  ");
  Write(howToRepeat);
  Write("\n");
}

void OnCrashSignal(int) {
  ReportCrash();
  for (size_t i = 0; i < kCrashSignals.size(); ++i) {
    sigaction(kCrashSignals[i], &previousActions[i], nullptr);
  }
}

class CrashReport {
 public:
  CrashReport() {
    struct sigaction action = {};
    action.sa_handler = OnCrashSignal;
    for (size_t i = 0; i < kCrashSignals.size(); ++i) {
      sigaction(kCrashSignals[i], &action, &previousActions[i]);
    }
    if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(ReportCrash);
  }
  ~CrashReport() {
    for (size_t i = 0; i < kCrashSignals.size(); ++i) {
      sigaction(kCrashSignals[i], &previousActions[i], nullptr);
    }
    if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(nullptr);
  }
};

std::optional<uint64_t> NumberFromEnvironment(const char* name) {
  const char* text = std::getenv(name);
  if (text == nullptr) return std::nullopt;
  return std::strtoull(text, nullptr, 0);
}

uint32_t Scaled(uint32_t count) {
  double factor = KOLM_TEST_CASE_FACTOR;
  if (const char* text = std::getenv("KOLM_TEST_CASES")) factor *= std::strtod(text, nullptr);
  return std::max(1u, static_cast<uint32_t>(count * factor));
}

uint32_t TinySide(Random& random) {
  return random.OneIn(3) ? random.Between(1, 9) : random.Between(1, 80);
}

uint32_t AwkwardWidth(Random& random, uint32_t width) {
  // Odd widths are only copied by many effects: few of them.
  return width % 2 == 1 && !random.OneIn(8) ? width + 1 : width;
}

}  // namespace

void DescribeCase(const std::string& description) {
  std::snprintf(caseInProgress, sizeof caseInProgress, "%s", description.c_str());
}

Size RandomFrameSize(Random& random) {
  static const std::vector<Size> everyday = {{640, 480}, {854, 480}, {1366, 768}, {424, 240},
                                             {320, 240}, {176, 144}, {160, 120},  {352, 288},
                                             {60, 30},   {62, 31},   {122, 91},   {482, 363}};
  static const std::vector<Size> large = {{1280, 720}, {1920, 1080}, {2562, 37}, {1922, 1081}};
  const uint32_t kind = random.Between(0, 99);
  if (kind < 60) return {AwkwardWidth(random, TinySide(random)), TinySide(random)};
  if (kind < 84) {
    return {AwkwardWidth(random, random.Between(60, 400)), random.Between(30, 200)};
  }
  if (kind < 95) return random.Pick(everyday);
  if (kind < 97) return random.Pick(large);
  const uint32_t longSide = random.Between(32760, 33000);
  const uint32_t shortSide = random.Between(1, 4);
  if (random.OneIn(2)) return {AwkwardWidth(random, shortSide), longSide};
  return {AwkwardWidth(random, longSide), shortSide};
}

std::vector<uint8_t> RandomPicture(Random& random, size_t bytes, size_t rowBytes) {
  std::vector<uint8_t> picture(bytes);
  const uint32_t kind = random.Between(0, 5);
  const uint64_t flat = random.Bits();
  const uint32_t stepX = random.Between(0, 40), stepY = random.Between(0, 40);
  uint64_t bits = 0;
  for (size_t i = 0; i < bytes; ++i) {
    if (i % 8 == 0) bits = random.Bits();
    const uint8_t noise = static_cast<uint8_t>(bits >> (i % 8 * 8));
    const size_t row = rowBytes == 0 ? 0 : i / rowBytes;
    const size_t column = rowBytes == 0 ? 0 : i % rowBytes;
    // The mixture changes its kind every 16 columns and rows.
    const uint32_t here =
        kind < 5 ? kind : static_cast<uint32_t>((column / 32 * 7 + row / 16 * 5 + flat) % 5);
    switch (here) {
      case 0:
        picture[i] = noise;
        break;
      case 1:
        picture[i] = static_cast<uint8_t>(flat >> (i % 4 * 8));
        break;
      case 2:
        picture[i] = static_cast<uint8_t>((column / 2 * stepX + row * stepY) / 8 + i % 2 * flat);
        break;
      case 3:
        picture[i] = noise % 2 == 0 ? 0 : 255;
        break;
      default:
        picture[i] = noise < 128 ? noise % 3 : static_cast<uint8_t>(255 - noise % 3);
        break;
    }
  }
  return picture;
}

void ForEachRandomCase(uint32_t count, const std::function<std::string(Random&)>& runCase) {
  const uint64_t seed = NumberFromEnvironment("KOLM_TEST_SEED").value_or(std::random_device()());
  const std::optional<uint64_t> only = NumberFromEnvironment("KOLM_TEST_CASE");
  const uint32_t cases = Scaled(count);
  std::cout << "seed " << seed << ", " << cases << " cases\n";
  const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
  const CrashReport crashReport;
  const uint64_t first = only.value_or(0);
  const uint64_t last = only ? *only + 1 : cases;
  for (uint64_t number = first; number < last; ++number) {
    Random random(seed, number);
    std::snprintf(howToRepeat, sizeof howToRepeat,
                  "repeat: KOLM_TEST_SEED=%llu KOLM_TEST_CASE=%llu kolm_tests --gtest_filter=%s.%s",
                  static_cast<unsigned long long>(seed), static_cast<unsigned long long>(number),
                  test.test_suite_name(), test.name());
    DescribeCase("a case without description");
    std::string wrong;
    try {
      wrong = runCase(random);
    } catch (const std::exception& exception) {
      wrong = std::string("exception: ") + exception.what();
    }
    if (!wrong.empty()) {
      ADD_FAILURE() << "seed " << seed << ", case " << number << ": " << caseInProgress << "\n  "
                    << wrong << "\n  " << howToRepeat;
      return;
    }
  }
}

}  // namespace kolm
