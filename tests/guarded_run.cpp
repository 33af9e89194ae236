// The destination is filled differently for either placement, so that a byte left out shows.
#include "tests/guarded_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "effects/effect_table.h"
#include "platform/host/host_kernel.h"
#include "tests/guarded_buffer.h"

namespace kolm {
namespace {

char runInProgress[128] = "outside the module";

std::string FirstDifference(const std::vector<uint8_t>& expected, const uint8_t* actual) {
  const auto difference = std::mismatch(expected.begin(), expected.end(), actual);
  if (difference.first == expected.end()) return "";
  char text[128];
  std::snprintf(text, sizeof text, "byte %td is %d instead of %d",
                difference.first - expected.begin(), *difference.second, *difference.first);
  return text;
}

}  // namespace

std::vector<InstructionSet> InstructionSets() {
  std::vector<InstructionSet> sets;
  for (InstructionSet set : {InstructionSet::Plain, InstructionSet::SSE2, InstructionSet::SSSE3}) {
    if (set <= host::BestInstructionSet()) sets.push_back(set);
  }
  return sets;
}

const char* Name(InstructionSet set) {
  switch (set) {
    case InstructionSet::Plain:
      return "Plain";
    case InstructionSet::SSE2:
      return "SSE2";
    case InstructionSet::SSSE3:
      return "SSSE3";
  }
  return "unknown";
}

const char* RunInProgress() { return runInProgress; }

std::string RunGuarded(const std::vector<uint8_t>& source, size_t destinationBytes,
                       const Work& work, const Verdict& verdict) {
  using Flush = GuardedBuffer::Flush;
  for (const Flush flush : {Flush::End, Flush::Start}) {
    GuardedBuffer guardedSource(source.size(), flush);
    std::copy(source.begin(), source.end(), guardedSource.data());
    guardedSource.MakeReadOnly();
    GuardedBuffer destination(destinationBytes, flush);
    for (const InstructionSet set : InstructionSets()) {
      const HeldInstructionSet held(set);
      std::snprintf(runInProgress, sizeof runInProgress, "%s, buffers flush with their %s",
                    Name(set), flush == Flush::End ? "end" : "start");
      std::fill_n(destination.data(), destinationBytes, flush == Flush::End ? 0xA5 : 0x5A);
      work(guardedSource.data(), destination.data());
      std::string wrong = verdict(destination.data());
      if (wrong.empty() && !destination.CanaryIntact()) {
        wrong = "bytes beside the destination were written";
      }
      if (wrong.empty()) wrong = host::DescribePoolBlocks();
      if (!wrong.empty()) return std::string(runInProgress) + ": " + wrong;
      std::snprintf(runInProgress, sizeof runInProgress, "outside the module");
    }
  }
  return "";
}

std::string CompareGuarded(const std::vector<uint8_t>& source, const std::vector<uint8_t>& expected,
                           const Work& work) {
  return RunGuarded(source, expected.size(), work, [&expected](const uint8_t* destination) {
    return FirstDifference(expected, destination);
  });
}

std::vector<uint8_t> RunAlike(const std::vector<uint8_t>& source, size_t destinationBytes,
                              const Work& work) {
  std::vector<uint8_t> first;
  bool ran = false;
  const std::string wrong =
      RunGuarded(source, destinationBytes, work, [&](const uint8_t* destination) {
        if (ran) return FirstDifference(first, destination);
        first.assign(destination, destination + destinationBytes);
        ran = true;
        return std::string();
      });
  EXPECT_EQ(wrong, "");
  return first;
}

std::vector<uint8_t> Apply(uint32_t id, const std::vector<uint8_t>& source, uint32_t width,
                           uint32_t height, uint32_t parameter) {
  const EffectRoutine routine = FindEffectRoutine(id);
  return RunAlike(source, BytesWritten(id, width, height, parameter),
                  [=](const uint8_t* frame, uint8_t* destination) {
                    routine(frame, destination, width, height, parameter);
                  });
}

bool WritesWholePairs(uint32_t id, uint32_t parameter) {
  return id == 4 || id == 13 || (id == 14 && parameter >= 1 && parameter <= 11);
}

size_t BytesWritten(uint32_t id, uint32_t width, uint32_t height, uint32_t parameter) {
  const size_t pixels = size_t{width} * height;
  return (WritesWholePairs(id, parameter) ? (pixels + 1) / 2 * 2 : pixels) * 2;
}

}  // namespace kolm
