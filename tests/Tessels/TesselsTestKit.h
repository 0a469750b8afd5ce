// Helpers shared by the container, time and registry tests: a heap policy
// that counts and can refuse, the place of the internal error an action
// raises, and strings in a form the test framework prints.
#pragma once

#include <stdlib.h>
#include <windows.h>

#include <string>
#include <utility>
#include <vector>

#include "errors.h"
#include "services.h"
#include "unicodestring.h"

namespace TestKit {

inline std::wstring W(const Tsl::CUnicodeString& text) {
  return std::wstring(text.Text(), text.Length());
}

// Boxes and texts land here instead of on the screen; bind it with
// Tsl::BindFoundationServices.
class CShownRecorder : public Tsl::IFoundationServices {
 public:
  bool GetMessageText(const wchar_t*, Tsl::CUnicodeString&) override { return false; }
  int ShowMessage(const Tsl::CUnicodeString& text, uint32_t) override {
    shown.push_back(W(text));
    return IDOK;
  }
  void ReportException(Tsl::CException*) override {}
  std::vector<std::wstring> shown;
};

// Counts the blocks it has out and the sizes asked for; fails the failIn-th
// allocation from now when failIn is set.
struct CountingHeap {
  struct Exhausted {};
  static inline int blocks = 0, failIn = 0;
  static inline std::vector<size_t> sizes;
  static void* Alloc(size_t size) {
    if (failIn > 0 && --failIn == 0) throw Exhausted();
    ++blocks;
    sizes.push_back(size);
    return malloc(size);
  }
  static void Free(void* block) {
    if (block != nullptr) --blocks;
    free(block);
  }
};

typedef std::pair<std::wstring, int32_t> Place;  // unit and line of an internal error

// Where the internal error that `action` raises comes from; {"", 0} for none.
template <class F>
Place InternalErrorOf(F action) {
  try {
    action();
  } catch (Tsl::CInternalError* error) {
    Place where(error->file, error->line);
    delete error;
    return where;
  }
  return {L"", 0};
}

}  // namespace TestKit
