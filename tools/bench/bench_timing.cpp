// Alternating-round timing, summarised per side.
#include "bench_timing.h"

#include <algorithm>
#include <chrono>
#include <vector>

namespace nivra::bench {
namespace {

using Clock = std::chrono::steady_clock;

// One side of a measurement: its call count per round, its rounds and its per-call times.
struct Side {
  const Operation* op;
  Timing result;
  long calls;
  int rounds;
  std::vector<double> perCall;
};

// Calls op `calls` times; the per-call seconds, or a negative value when a call failed.
double TimeRound(const Operation& op, long calls, Outcome* outcome) {
  const auto start = Clock::now();
  for (long i = 0; i < calls; ++i) {
    *outcome = op();
    if (*outcome != Outcome::kDone) return -1;
  }
  return std::chrono::duration<double>(Clock::now() - start).count() / static_cast<double>(calls);
}

void Prepare(Side& side, const TimingPlan& plan) {
  const double trial = std::max(TimeRound(*side.op, 1, &side.result.outcome), 1e-9);
  side.calls = 1;
  side.rounds = plan.maxRounds;
  if (side.result.outcome != Outcome::kDone) return;
  if (plan.roundSeconds > 0)
    side.calls = std::max(1L, static_cast<long>(plan.roundSeconds / trial));
  const double roundTime = trial * static_cast<double>(side.calls);
  const int affordable = static_cast<int>(plan.budgetSeconds / roundTime);
  side.rounds = std::clamp(affordable, plan.minRounds, plan.maxRounds);
}

double Summarise(std::vector<double> values, Statistic statistic) {
  std::sort(values.begin(), values.end());
  if (statistic == Statistic::kFastest) return values.front();
  const size_t mid = values.size() / 2;
  return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

}  // namespace

PairTiming MeasurePair(const Operation& ours, const Operation& peer, const TimingPlan& plan) {
  Side sides[2] = {{&ours, {}, 1, 0, {}}, {&peer, {}, 1, 0, {}}};
  for (Side& side : sides) Prepare(side, plan);
  for (int round = 0; round < plan.maxRounds; ++round) {
    for (Side& side : sides) {
      if (side.result.outcome != Outcome::kDone || round >= side.rounds) continue;
      const double perCall = TimeRound(*side.op, side.calls, &side.result.outcome);
      if (perCall >= 0) side.perCall.push_back(perCall);
    }
  }
  for (Side& side : sides) {
    if (side.result.outcome == Outcome::kDone && !side.perCall.empty())
      side.result.secondsPerCall = Summarise(side.perCall, plan.statistic);
  }
  return {sides[0].result, sides[1].result};
}

}  // namespace nivra::bench
