// The benchmark program's small framework: each bench/*_bench.cpp registers
// cases; every case measures the product's code and a baseline in the same
// run and reports their ratio, so figures compare across machines.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

namespace Bench {

// Seconds of wall time for one call of `body`, best of `repeats` calls.
double Time(const std::function<void()>& body, int repeats = 5);

// Prints one line: what was measured, both times, and ours/baseline.
// `target` says what the ratio should be (for example "<= 1.0").
void Report(const std::string& what, double ours, double baseline, const std::string& target);

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
