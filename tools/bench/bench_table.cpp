// Formatting of the result table.
#include "bench_table.h"

#include <cstdio>

namespace nivra::bench {
namespace {

std::string Format(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof(text), format, value);
  return text;
}

std::string DescribeTime(const Timing& timing, double bytesPerCall) {
  switch (timing.outcome) {
    case Outcome::kNotBuilt: return "not built yet";
    case Outcome::kFailed: return "failed";
    case Outcome::kDone: break;
  }
  const double s = timing.secondsPerCall;
  std::string text = s >= 1     ? Format("%.2f s", s)
                     : s >= 1e-3 ? Format("%.2f ms", s * 1e3)
                                 : Format("%.1f us", s * 1e6);
  if (bytesPerCall > 0 && s > 0) text += Format(" (%.0f MB/s)", bytesPerCall / s / 1e6);
  return text;
}

}  // namespace

void PrintTableHeading(const std::string& ourName, const std::string& peerName) {
  std::printf("Ours: %s\nPeer: %s\n", ourName.c_str(), peerName.c_str());
  std::printf("Ratio = peer time / our time (our speed as a multiple of the peer's).\n\n");
  std::printf("| Operation | Ours | Peer | Ratio | Goal | Met | Same result |\n");
  std::printf("|---|---|---|---|---|---|---|\n");
}

void PrintRow(const BenchRow& row) {
  const Timing& ours = row.timing.ours;
  const Timing& peer = row.timing.peer;
  const bool measured = ours.outcome == Outcome::kDone && peer.outcome == Outcome::kDone &&
                        ours.secondsPerCall > 0;
  const double ratio = measured ? peer.secondsPerCall / ours.secondsPerCall : 0;
  const std::string goal = row.goal > 0 ? Format(">= %.2fx", row.goal) : "-";
  const std::string met = !measured || row.goal <= 0 ? "-" : ratio >= row.goal ? "yes" : "NO";
  std::printf("| %s | %s | %s | %s | %s | %s | %s |\n", row.operation.c_str(),
              DescribeTime(ours, row.bytesPerCall).c_str(),
              DescribeTime(peer, row.bytesPerCall).c_str(),
              measured ? Format("%.2fx", ratio).c_str() : "-", goal.c_str(), met.c_str(),
              row.check.empty() ? "-" : row.check.c_str());
  std::fflush(stdout);
}

}  // namespace nivra::bench
