// Fakes shared by the allocator tests: a memory manager that counts its calls
// and a capture of the allocators' diagnostics.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "alloc.h"
#include "tessels.h"

namespace AllocatorFakes {

// A manager over the runtime heap that counts its calls, from any thread.
struct CCountingManager : Tsl::IMemoryManager {
  void* Alloc(size_t size) override { return ++allocs, lastSize = size, malloc(size); }
  void Free(void* block) override { ++frees, free(block); }
  std::atomic<int> allocs{0}, frees{0};
  size_t lastSize = 0;
};

// Captures what the allocators trace and show, under the given debug flags,
// for the object's life.
class CCapturedOutput {
 public:
  using Captured = std::vector<std::pair<Tsl::EAllocatorOutput, std::wstring>>;
  explicit CCapturedOutput(uint32_t flags) {
    captured.clear();
    Tsl::SetDebugFlags(flags);
  }
  ~CCapturedOutput() {
    Tsl::SetDebugFlags(savedFlags);
    Tsl::BindAllocatorOutputSink(previous);
  }
  const Captured& Lines() const { return captured; }

 private:
  static inline Captured captured;
  static int Capture(Tsl::EAllocatorOutput output, const wchar_t* text) {
    captured.emplace_back(output, text);
    return IDOK;
  }
  uint32_t savedFlags = Tsl::GetDebugFlags();
  Tsl::AllocatorOutputSink previous = Tsl::BindAllocatorOutputSink(Capture);
};

}  // namespace AllocatorFakes
