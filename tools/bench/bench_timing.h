// Timing of one operation on two engines in alternating rounds, so that both see the same load
// on the machine (other processes, frequency changes) and their ratio stays meaningful.
#pragma once
#include <functional>

#include "bench_engine.h"

namespace nivra::bench {

using Operation = std::function<Outcome()>;

struct Timing {
  Outcome outcome = Outcome::kNotBuilt;  // kDone when every call of every round succeeded
  double secondsPerCall = 0;             // the plan's statistic over the rounds
};

struct PairTiming {
  Timing ours;
  Timing peer;
};

// How the rounds' per-call times are summarised. The machine is shared: a round that another
// process preempts only gets slower, so the fastest round is the best estimate of the
// operation's own cost. Operations whose cost varies by nature (key generation: the number of
// prime candidates is random) use the median instead.
enum class Statistic { kFastest, kMedian };

struct TimingPlan {
  int maxRounds;         // rounds per side at most
  int minRounds;         // rounds per side at least, however slow the operation
  double roundSeconds;   // target length of a round (0: one call per round)
  double budgetSeconds;  // rounds are cut to about this much time per side
  Statistic statistic;
};

// Short rounds (about 2 ms, fitting between preemptions), fastest round wins.
constexpr TimingPlan kQuickOperationPlan = {201, 15, 0.002, 2.0, Statistic::kFastest};

// Runs ours and peer in alternating rounds. The calls per round and the number of rounds are
// chosen per side from a first trial call. A side whose first call does not succeed is not
// measured further and keeps that outcome.
PairTiming MeasurePair(const Operation& ours, const Operation& peer, const TimingPlan& plan);

}  // namespace nivra::bench
