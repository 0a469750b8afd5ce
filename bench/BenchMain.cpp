// Runs every registered benchmark group, or those whose names contain an argument.
#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "Bench.h"

namespace Bench {
namespace {
std::map<std::string, void (*)()>& Groups() {
  static std::map<std::string, void (*)()> groups;
  return groups;
}
}  // namespace

Registrar::Registrar(const char* name, void (*run)()) { Groups()[name] = run; }

Timing Time(const std::function<void()>& body, int runs) {
  runs = std::max(runs, MinimumRuns);
  LARGE_INTEGER frequency, start, end;
  QueryPerformanceFrequency(&frequency);
  body();  // the warm-up
  std::vector<double> seconds;
  for (int i = 0; i < runs; ++i) {
    QueryPerformanceCounter(&start);
    body();
    QueryPerformanceCounter(&end);
    seconds.push_back(double(end.QuadPart - start.QuadPart) / double(frequency.QuadPart));
  }
  std::sort(seconds.begin(), seconds.end());
  size_t middle = seconds.size() / 2;
  double median = seconds.size() % 2 ? seconds[middle] : (seconds[middle - 1] + seconds[middle]) / 2;
  return {median, seconds.front(), seconds.back()};
}

void Report(const std::string& what, const Timing& ours, const Timing& baseline,
            const std::string& target) {
  std::printf("  %-58s ours %9.3f ms +-%3.0f%%  baseline %9.3f ms +-%3.0f%%  ratio %6.2f  (target %s)\n",
              what.c_str(), ours.median * 1e3, ours.Spread() * 100, baseline.median * 1e3,
              baseline.Spread() * 100, baseline.median > 0 ? ours.median / baseline.median : 0.0,
              target.c_str());
  std::fflush(stdout);
}

void Note(const std::string& text) {
  std::printf("  %s\n", text.c_str());
  std::fflush(stdout);
}

}  // namespace Bench

int main(int argc, char** argv) {
  for (auto& [name, run] : Bench::Groups()) {
    bool wanted = argc < 2;
    for (int i = 1; i < argc; ++i) wanted = wanted || name.find(argv[i]) != std::string::npos;
    if (!wanted) continue;
    std::printf("%s\n", name.c_str());
    run();
  }
  return 0;
}
