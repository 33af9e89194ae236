// kolm_bench: one thread for everybody; scripts/bench-table.py turns its output into a table.
#include <benchmark/benchmark.h>
#include <gnu/libc-version.h>
#include <libyuv.h>

#include <opencv2/core.hpp>
#include <string>

#include "bench/pairs.h"
#include "platform/host/host_kernel.h"
#include "platform/instruction_set.h"

namespace {

const char* InstructionSetName() {
  switch (kolm::AvailableInstructionSet()) {
    case kolm::InstructionSet::Plain:
      return "plain";
    case kolm::InstructionSet::SSE2:
      return "sse2";
    case kolm::InstructionSet::SSSE3:
      return "ssse3";
  }
  return "unknown";
}

}  // namespace

int main(int argc, char** argv) {
  cv::setNumThreads(1);
  kolm::host::SetPoolTrace(false);
  benchmark::AddCustomContext("instruction_set", InstructionSetName());
  benchmark::AddCustomContext("opencv", CV_VERSION);
  benchmark::AddCustomContext("libyuv", std::to_string(LIBYUV_VERSION));
  benchmark::AddCustomContext("glibc", gnu_get_libc_version());
  kolm::bench::RegisterBackgroundPairs();
  kolm::bench::RegisterEffectPairs();
  kolm::bench::RegisterFacePairs();
  kolm::bench::RegisterScalerPairs();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  return benchmark::RunSpecifiedBenchmarks() == 0 ? 1 : 0;
}
