// The agent log: a per-run UTF-16 file, opened at the first entry written
// while logging is wanted, flushed after every entry, closed at process end.
// All writers of all threads meet at one lock; no failure leaves WriteLog.
#include "MdTools/Log.h"

#include <new>

#include "Unsup/TesselExt.h"
#include "alloc.h"
#include "basefile.h"
#include "errors.h"
#include "filesystem.h"
#include "inifile.h"
#include "scopedlock.h"
#include "setup.h"
#include "tessels.h"
#include "tsltime.h"

using Tsl::CUnicodeString;

namespace {

const wchar_t Unit[] = L"Log";
const wchar_t LineEnd[] = L"\r\n";

// Open flags: write, others may read; open as it is, or create new.
const uint32_t OpenExistingFlags = 0x2021;
const uint32_t CreateNewFlags = 0x1021;

class CLogFile : public Tsl::CFile {
 public:
  CLogFile() : initialised(false), enabled(false) {}

  void WriteEntry(const CUnicodeString& text);
  void CloseLogFile();
  CUnicodeString MakePath() const;

  bool initialised;  // the open has been attempted while logging was on
  bool enabled;      // entries are written
  CUnicodeString directory;

 private:
  void OpenLog();
};

// The lock, the log and the override, built before main and never destroyed:
// a static object's destructor may still log after the closer below ran.
struct CLogState {
  CRITICAL_SECTION lock;
  CLogFile file;
  bool logOverride = false;
  bool logOverrideEnabled = false;
  CUnicodeString logOverrideDirectory;

  CLogState() { ::InitializeCriticalSection(&lock); }
};

CLogState& State() {
  alignas(CLogState) static unsigned char storage[sizeof(CLogState)];
  static CLogState* state = new (storage) CLogState;
  return *state;
}

// Builds the state before main and closes the file after it; an entry
// written later opens the same file again and appends.
struct CLogCloser {
  CLogCloser() { State(); }
  ~CLogCloser() { CloseLog(); }
} logCloser;

// Lower-case hexadecimal of an address, without leading zeros.
CUnicodeString HexOfAddress(const void* address) {
  uintptr_t value = reinterpret_cast<uintptr_t>(address);
  wchar_t digits[2 * sizeof value + 1];
  int at = int(sizeof digits / sizeof digits[0]) - 1;
  digits[at] = 0;
  do {
    digits[--at] = L"0123456789abcdef"[value & 0xF];
    value >>= 4;
  } while (value != 0);
  return CUnicodeString(digits + at);
}

// Every CR goes, every LF becomes CR LF, and the entry ends with a line end.
CUnicodeString NormaliseLineEnds(const CUnicodeString& entry) {
  CUnicodeString result;
  result.Reserve(entry.Length() + 8);
  for (int32_t i = 0; i < entry.Length(); ++i) {
    wchar_t unit = entry[i];
    if (unit == L'\r') continue;
    if (unit == L'\n')
      result += LineEnd;
    else
      result += unit;
  }
  if (entry.IsEmpty() || entry[entry.Length() - 1] != L'\n') result += LineEnd;
  return result;
}

// The program name, the address of the log object and the process: every
// run has its own file, and no two processes share one.
CUnicodeString CLogFile::MakePath() const {
  CLogState& state = State();
  CUnicodeString name = Tsl::GetName(Tsl::GetExecutablePath());
  name += L"_0x";
  name += HexOfAddress(this);
  name += L"_";
  name += CUnicodeString::FromNumber(int64_t(::GetCurrentProcessId()));
  name += L".log";
  CUnicodeString folder;
  if (state.logOverride) {
    TSL_ASSERT(!state.logOverrideDirectory.IsEmpty(), Unit, 52);
    folder = state.logOverrideDirectory;
  } else if (!directory.IsEmpty()) {
    folder = directory;
  } else {
    folder = Tsl::ConcatPath(Tsl::GetModuleFolder(), L"Logs");
  }
  return Tsl::MergePath(folder, name);
}

// A failure leaves the log off for the rest of the run: `initialised` stays
// set, so a folder that cannot be made is not tried at every entry.
void CLogFile::OpenLog() {
  initialised = true;
  try {
    if (IsOpen()) CloseLogFile();
    initialised = true;
    CUnicodeString path = MakePath();
    CUnicodeString folder = Tsl::GetDriveAndDirectory(path);
    if (!Tsl::DirectoryExists(folder)) Tsl::CreateDirectory(folder, false);
    bool exists = Tsl::FileExists(path, Tsl::CFile::ModeExistenceOnly);
    Open(path, exists ? OpenExistingFlags : CreateNewFlags);
    Seek(0, Tsl::SeekEnd);
    if (!exists) {
      const unsigned char byteOrderMark[2] = {0xFF, 0xFE};
      Write(byteOrderMark, 2);
    }
    enabled = true;
  } catch (Tsl::CException* failure) {
    delete failure;
    enabled = false;
    if (IsOpen()) Abort();
  }
}

void CLogFile::CloseLogFile() {
  if (!IsOpen()) return;
  initialised = false;
  enabled = false;
  Close();
}

void CLogFile::WriteEntry(const CUnicodeString& text) {
  if (!initialised) {
    enabled = IsLogEnabled();
    if (enabled) OpenLog();
  }
  if (!enabled) return;
  CUnicodeString entry = Tsl::CTime::GetCurrentTime().Format(L"%Y-%m-%d %H:%M:%S");
  entry += L" : ";
  entry += text;
  entry += L'\n';
  CUnicodeString lines = NormaliseLineEnds(entry);
  // The units as they stand, two bytes each: the file is UTF-16 LE.
  Write(lines.Text(), lines.Length() * int32_t(sizeof(wchar_t)));
  Flush();
}

// Key Log of section Debug in the switch board beside the program, or
// "undef" when the file or the key is missing. A file the ini reader rejects
// counts as saying nothing, so the per-user setting decides.
CUnicodeString ReadSharedFilesSwitch() {
  CUnicodeString undefined(L"undef");
  CUnicodeString path = Tsl::ConcatPath(Tsl::GetExecutableFolder(), SharedFilesIniName);
  if (!Tsl::FileExists(path, Tsl::CFile::ModeExistenceOnly)) return undefined;
  try {
    Tsl::CIniFile ini(path);
    return ini.GetValue(L"Debug", L"Log", undefined);
  } catch (Tsl::CException* failure) {
    delete failure;
    return undefined;
  }
}

}  // namespace

bool IsLogEnabled() {
  CLogState& state = State();
  if (state.logOverride) return state.logOverrideEnabled;
  CUnicodeString value = ReadSharedFilesSwitch();
  if (value.Compare(L"undef") == 0) {
    Tsl::CSetup<bool> logModeOn(ProductKeyPath, L"LogModeOn", Tsl::SS_CurrentUser, false);
    return logModeOn.Get();
  }
  // Any deliberate entry that is no boolean word turns the log on.
  bool on = true;
  value.ToBool(on);
  return on;
}

void WriteLog(const CUnicodeString& text) {
  CLogState& state = State();
  Tsl::CScopedLock hold(state.lock);
  // The open file and its strings outlive the caller's scope and thread:
  // they never come from a heap that the caller may destroy.
  Tsl::CRuntimeHeapSwitch onRuntimeHeap;
  try {
    state.file.WriteEntry(text);
  } catch (Tsl::CException* failure) {
    // A full disk or a vanished share costs this entry only: the file stays
    // open for the next one.
    delete failure;
  }
}

void SetLogDirectory(const CUnicodeString& path) {
  CLogState& state = State();
  Tsl::CScopedLock hold(state.lock);
  Tsl::CRuntimeHeapSwitch onRuntimeHeap;
  state.file.directory = path;
}

void CloseLog() {
  CLogState& state = State();
  Tsl::CScopedLock hold(state.lock);
  try {
    state.file.CloseLogFile();
  } catch (Tsl::CException* failure) {
    delete failure;
  }
}

void SetLogOverride(bool active, bool enabled, const CUnicodeString& directory) {
  CLogState& state = State();
  Tsl::CScopedLock hold(state.lock);
  state.logOverride = active;
  state.logOverrideEnabled = enabled;
  state.logOverrideDirectory = directory;
}

void ResetLog() {
  CLogState& state = State();
  Tsl::CScopedLock hold(state.lock);
  try {
    state.file.CloseLogFile();
  } catch (Tsl::CException* failure) {
    delete failure;
  }
  if (state.file.IsOpen()) state.file.Abort();
  state.file.initialised = false;
  state.file.enabled = false;
}
