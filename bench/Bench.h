// The benchmark program's small framework: each bench/*_bench.cpp registers
// cases; every case measures the product's code and a baseline in the same
// run and reports their ratio, so figures compare across machines.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

namespace Bench {

// Seconds of wall time for one call of a body: the median of the measured
// runs, and the fastest and slowest of them.
struct Timing {
  double median;
  double fastest;
  double slowest;
  // How far the runs lay apart, relative to the median.
  double Spread() const { return median > 0 ? (slowest - fastest) / median : 0.0; }
};

// Calls `body` once to warm caches and pools up, unmeasured, then measures
// `runs` calls (at least MinimumRuns). On a shared machine one call may take
// twice as long as the next; the median of several is what a ratio can rest on.
const int MinimumRuns = 5;
Timing Time(const std::function<void()>& body, int runs = MinimumRuns);

// Prints one line: what was measured, both medians with their spreads, and
// the ratio of the medians. `target` says what the ratio should be (for
// example "<= 1.0").
void Report(const std::string& what, const Timing& ours, const Timing& baseline,
            const std::string& target);

// Prints a line of free text (sizes, counts).
void Note(const std::string& text);

struct Registrar {
  Registrar(const char* name, void (*run)());
};

// Defines a group of measurements: BENCH(StringPools) { ... Report(...); }
#define BENCH(name)                                                \
  static void BenchRun_##name();                                   \
  static ::Bench::Registrar benchRegistrar_##name(#name, BenchRun_##name); \
  static void BenchRun_##name()

// Keeps the optimiser from dropping a computed value.
template <class T>
inline void Keep(const T& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

}  // namespace Bench
