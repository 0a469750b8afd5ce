// Runs every registered benchmark group, or those whose names contain an argument.
#include <cstdio>
#include <map>
#include <string>

#include "Bench.h"

namespace Bench {
namespace {
std::map<std::string, void (*)()>& Groups() {
  static std::map<std::string, void (*)()> groups;
  return groups;
}
}  // namespace

Registrar::Registrar(const char* name, void (*run)()) { Groups()[name] = run; }

double Time(const std::function<void()>& body, int repeats) {
  LARGE_INTEGER frequency, start, end;
  QueryPerformanceFrequency(&frequency);
  double best = 1e300;
  for (int i = 0; i < repeats; ++i) {
    QueryPerformanceCounter(&start);
    body();
    QueryPerformanceCounter(&end);
    double seconds = double(end.QuadPart - start.QuadPart) / double(frequency.QuadPart);
    if (seconds < best) best = seconds;
  }
  return best;
}

void Report(const std::string& what, double ours, double baseline, const std::string& target) {
  std::printf("  %-58s ours %9.3f ms  baseline %9.3f ms  ratio %6.2f  (target %s)\n", what.c_str(),
              ours * 1e3, baseline * 1e3, baseline > 0 ? ours / baseline : 0.0, target.c_str());
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
