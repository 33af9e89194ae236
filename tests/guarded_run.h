// Runs the module's functions between guard pages, in every instruction set that this machine has.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/host/instruction_set.h"

namespace kolm {

// Plain and up to the best that the machine runs.
std::vector<InstructionSet> InstructionSets();

const char* Name(InstructionSet set);

// Holds the module to one instruction set for its lifetime.
class HeldInstructionSet {
 public:
  explicit HeldInstructionSet(InstructionSet set) { host::ForceInstructionSet(set); }
  ~HeldInstructionSet() { host::ForceInstructionSet(host::BestInstructionSet()); }
  HeldInstructionSet(const HeldInstructionSet&) = delete;
  HeldInstructionSet& operator=(const HeldInstructionSet&) = delete;
};

using Work = std::function<void(const uint8_t* source, uint8_t* destination)>;

// Judges a run by what it wrote; an empty string is a pass.
using Verdict = std::function<std::string(const uint8_t* destination)>;

// Runs `work` from `source` into `destinationBytes` bytes, both exactly as large as they are and
// read-only or prefilled, for each instruction set, flush with either guard page. Returns what is
// wrong with the first run that `verdict` rejects, that leaves its buffers or that keeps a pool
// block; an empty string if none.
std::string RunGuarded(const std::vector<uint8_t>& source, size_t destinationBytes,
                       const Work& work, const Verdict& verdict);

// RunGuarded with the one verdict that all bytes are `expected`.
std::string CompareGuarded(const std::vector<uint8_t>& source, const std::vector<uint8_t>& expected,
                           const Work& work);

// What the shipped effect `id` makes of a frame; a test failure if the runs differ among themselves
// or leave their buffers. Returns the frame's bytes, with the whole last pair where
// WritesWholePairs.
std::vector<uint8_t> Apply(uint32_t id, const std::vector<uint8_t>& source, uint32_t width,
                           uint32_t height, uint32_t parameter = 0);

// The first run's destination instead of a verdict; a test failure as in Apply.
std::vector<uint8_t> RunAlike(const std::vector<uint8_t>& source, size_t destinationBytes,
                              const Work& work);

// Whether the effect rounds a frame of odd pixel count up to a whole pixel pair.
bool WritesWholePairs(uint32_t id, uint32_t parameter);

// Effect `id` writes so many bytes of a frame.
size_t BytesWritten(uint32_t id, uint32_t width, uint32_t height, uint32_t parameter);

// The instruction set and buffer placement of the run in progress, for a crash report.
const char* RunInProgress();

}  // namespace kolm
