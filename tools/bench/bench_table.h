// The benchmark's result table, printed as Markdown so that a run can be pasted into the
// performance notes as it is.
#pragma once
#include <string>

#include "bench_timing.h"

namespace nivra::bench {

struct BenchRow {
  std::string operation;
  double bytesPerCall = 0;  // > 0: also show throughput
  PairTiming timing;
  double goal = 0;          // minimum ratio (peer time / our time) aimed at; 0 for none
  std::string check;        // whether both engines produced the same result
};

void PrintTableHeading(const std::string& ourName, const std::string& peerName);
void PrintRow(const BenchRow& row);

}  // namespace nivra::bench
