#pragma once
/* Comparisons that a shared machine does not spoil: both sides run in turns, a round each, and what
 * counts is the median. Each side returns the seconds that its round took.
 */
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <vector>

inline double SecondsOf(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <typename Work>
double SecondsOf(clockid_t clock, Work work) {
  const double start = SecondsOf(clock);
  work();
  return SecondsOf(clock) - start;
}

inline double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

// Counters: microseconds of each side for one of the `pieces` of a round, and the ratio.
template <typename Ours, typename Peer>
void RunInTurns(benchmark::State& state, int pieces, Ours ours, Peer peer) {
  std::vector<double> our, their;
  bool first = true;
  for (auto _ : state) {
    if (first) our.push_back(ours());
    their.push_back(peer());
    if (!first) our.push_back(ours());
    first = !first;
  }
  state.counters["us"] = Median(our) / pieces * 1e6;
  state.counters["peer_us"] = Median(their) / pieces * 1e6;
  state.counters["ratio"] = Median(our) / Median(their);
}
