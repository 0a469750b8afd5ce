// The message catalogue: the list of declared names, their texts through the
// resource modules, parameter substitution with its optional check, and the
// development aids that list undefined and unused names.
#include "message.h"

#include <errno.h>
#include <stdlib.h>

#include "basefile.h"
#include "errors.h"
#include "filesystem.h"
#include "inifile.h"
#include "resourceinfo.h"
#include "services.h"
#include "tessels.h"
#include "textstream.h"

namespace Tsl {

namespace {

const wchar_t* const unitName = L"message";

// The list's head and lock, made on first use: names are declared by static
// objects of any unit, before main, in an order nobody fixes.
struct CMessageList {
  CRITICAL_SECTION lock;
  CMessageName* head = nullptr;
  CMessageList() { ::InitializeCriticalSection(&lock); }
};

CMessageList& List() {
  // Never destroyed: names of modules that end late still unlink.
  alignas(CMessageList) static unsigned char storage[sizeof(CMessageList)];
  static CMessageList* list = new (storage) CMessageList;
  return *list;
}

class CListLock {
 public:
  CListLock() { ::EnterCriticalSection(&List().lock); }
  ~CListLock() { ::LeaveCriticalSection(&List().lock); }
  CListLock(const CListLock&) = delete;
  CListLock& operator=(const CListLock&) = delete;
};

// Look-up needs the running library; before and after it only the names
// themselves are shown.
bool LookUp(const wchar_t* name, CUnicodeString& text) {
  if (!IsLibraryRunning()) return false;
  return GetModuleMessageText(name, text);
}

void SortUnique(CArray<CUnicodeString>& names) {
  SortStringsByUnits(names);
  for (int32_t i = names.GetSize() - 1; i > 0; --i)
    if (names[i].Compare(names[i - 1]) == 0) names.DeleteAt(i);
}

// The parameter numbers the substitution would find in `text`, in order of
// appearance, repeats included.
void CollectMarkers(const CUnicodeString& text, CArray<int32_t>& numbers) {
  const wchar_t* units = text.Text();
  int32_t length = text.Length();
  for (int32_t scan = 0; scan < length;) {
    int32_t percent = text.Find(L'%', scan);
    if (percent < 0 || percent == length - 1) return;
    int32_t runEnd = percent + 1;
    while (runEnd < length && IsDecimalDigit(units[runEnd])) ++runEnd;
    if (runEnd > percent + 1) {
      wchar_t* end = nullptr;
      errno = 0;
      long number = wcstol(units + percent + 1, &end, 10);
      if (errno != ERANGE && end == units + runEnd && number >= 0 && number <= INT32_MAX)
        numbers.Add(int32_t(number));
    }
    scan = runEnd;
  }
}

// A report of the check must not check itself.
thread_local bool checkingParams = false;

}  // namespace

CMessageName::CMessageName(const wchar_t* name) : name(name), next(nullptr), previous(nullptr) {
  CListLock lock;
  CMessageList& list = List();
  next = list.head;
  if (next != nullptr) next->previous = this;
  list.head = this;
}

CMessageName::~CMessageName() {
  CListLock lock;
  if (previous != nullptr) previous->next = next;
  else List().head = next;
  if (next != nullptr) next->previous = previous;
}

bool CMessageName::IsDefined() const {
  CUnicodeString text;
  return LookUp(name, text);
}

CUnicodeString CMessageName::GetText() const {
  CUnicodeString text;
  if (LookUp(name, text)) return text;
  return CUnicodeString(name);
}

CUnicodeString CMessageName::FormatArray(const CUnicodeString* params, int32_t count) const {
  CUnicodeString text;
  if (LookUp(name, text)) return text.SubstParamArray(params, count);
  CUnicodeString shown(name);
  for (int32_t i = 0; i < count; ++i) {
    shown += L' ';
    shown += params[i];
  }
  return shown;
}

CUnicodeString CMessageName::Format(const CUnicodeString& p0) const { return FormatArray(&p0, 1); }

CUnicodeString CMessageName::Format(const CUnicodeString& p0, const CUnicodeString& p1) const {
  CUnicodeString params[2] = {p0, p1};
  return FormatArray(params, 2);
}

CUnicodeString CMessageName::Format(const CUnicodeString& p0, const CUnicodeString& p1,
                                    const CUnicodeString& p2) const {
  CUnicodeString params[3] = {p0, p1, p2};
  return FormatArray(params, 3);
}

void GetDeclaredMessageNames(CArray<CUnicodeString>& names) {
  names.DeleteAll();
  CListLock lock;
  for (CMessageName* entry = List().head; entry != nullptr; entry = entry->next)
    names.Add(CUnicodeString(entry->name));
}

CUnicodeString SubstituteParams(const CUnicodeString& text, const wchar_t* const* params, int32_t count) {
  return text.SubstParam(params, count);
}

void CheckParams(const CUnicodeString& text, int32_t expected) {
  if (checkingParams) return;
  checkingParams = true;
  CRuntimeHeapSwitch onRuntimeHeap;
  CArray<int32_t> numbers;
  CollectMarkers(text, numbers);
  // The count a text asks for is its highest number plus one: "%0 %2"
  // wants three parameters, whatever it names.
  int32_t highest = -1;
  for (int32_t number : numbers)
    if (number > highest) highest = number;
  int32_t found = highest + 1;
  if (found != expected) {
    CUnicodeString report;
    report.Format(L"Number of params in message \"%ls\" is invalid: %d, expected %d.", text.Text(),
                  int(found), int(expected));
    ShowMessage(report, MB_OKCANCEL | MB_ICONEXCLAMATION);
  }
  // The separator is a blank and then a comma, and none stands first.
  CUnicodeString missing;
  for (int32_t n = 0; n < highest; ++n) {
    if (numbers.Find(n) >= 0) continue;
    if (!missing.IsEmpty()) missing += L" ,";
    missing += CUnicodeString::FromNumber(int64_t(n));
  }
  if (!missing.IsEmpty()) {
    CUnicodeString report;
    report.Format(L"Some parameters in message \"%ls\" are missing: %ls.", text.Text(), missing.Text());
    ShowMessage(report, MB_OKCANCEL | MB_ICONEXCLAMATION);
  }
  checkingParams = false;
}

void GetUndefinedMessages(CArray<CUnicodeString>& names) {
  names.DeleteAll();
  {
    CListLock lock;
    for (CMessageName* entry = List().head; entry != nullptr; entry = entry->next)
      if (!entry->IsDefined()) names.Add(CUnicodeString(entry->name));
  }
  SortUnique(names);
}

void GetUnusedMessages(CArray<CUnicodeString>& names) {
  names.DeleteAll();
  CArray<CUnicodeString> available;
  GetAllMessageNames(available);
  CArray<CUnicodeString> declared;
  GetDeclaredMessageNames(declared);
  SortUnique(declared);
  int32_t d = 0;
  for (int32_t a = 0; a < available.GetSize(); ++a) {
    while (d < declared.GetSize() && declared[d].Compare(available[a]) < 0) ++d;
    if (d >= declared.GetSize() || declared[d].Compare(available[a]) != 0) names.Add(available[a]);
  }
}

void SaveAllMessages(const CUnicodeString& path) {
  CFile file(path, CFile::ModeCreate | CFile::ShareDenyWrite | CFile::ModeWrite);
  CTextStream stream(&file, TE_Utf16);
  stream.WriteText(CUnicodeString(L"Name\tModule\tDefined\tUsed\r\n"));
  {
    CListLock lock;
    for (CMessageName* entry = List().head; entry != nullptr; entry = entry->next) {
      // The module that declares the name is the allocation its object lies in.
      MEMORY_BASIC_INFORMATION region;
      SIZE_T size = ::VirtualQuery(entry, &region, sizeof region);
      TSL_ASSERT(size == sizeof region, unitName, 199);
      CUnicodeString module;
      if (size == sizeof region) module = GetModuleFilePath(static_cast<HMODULE>(region.AllocationBase));
      stream.WriteFormat(L"%ls\t%ls\t%ls\t%ls\r\n", entry->name, module.Text(),
                         entry->IsDefined() ? L"true" : L"false", L"true");
    }
  }
  CArray<CUnicodeString> unused;
  GetUnusedMessages(unused);
  for (const CUnicodeString& name : unused)
    stream.WriteFormat(L"%ls\t\t%ls\t%ls\r\n", name.Text(), L"true", L"false");
}

void SaveUndefinedMessages(const CUnicodeString& path) {
  CArray<CUnicodeString> undefined;
  GetUndefinedMessages(undefined);
  CArray<CUnicodeString> unused;
  GetUnusedMessages(unused);
  CFile file(path, CFile::ModeCreate | CFile::ShareDenyWrite | CFile::ModeWrite);
  CTextStream stream(&file, TE_Utf16);
  for (const CUnicodeString& name : undefined) stream.WriteText(name + L"\r\n");
  if (!unused.IsEmpty()) {
    stream.WriteText(CUnicodeString(L"********** Unused messages ********\r\n"));
    for (const CUnicodeString& name : unused) stream.WriteText(name + L"\r\n");
  }
}

}  // namespace Tsl
