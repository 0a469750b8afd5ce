// The agent's diagnostic log: one UTF-16 file per run, switched on per
// installation (SharedFiles.ini) or per user (LogModeOn) without a restart.
// WriteLog may be called from any thread at any time and never disturbs its
// caller: whatever goes wrong, the line is dropped and the caller goes on.
#pragma once

#include "unicodestring.h"

// Appends one entry: local date and time, " : ", the text, and a line end.
// Line ends inside the text come out as CR LF; a text that ends in a line end
// gives an empty second line. Each entry is flushed before the call returns.
void WriteLog(const Tsl::CUnicodeString& text);

// The folder the log goes to from the next open on; empty means "Logs" under
// the foundation's module folder. The agent sets it once, before its first line.
void SetLogDirectory(const Tsl::CUnicodeString& path);

// Closes an open log; the next entry decides anew whether to log. Does
// nothing while no file is open (also after an open that failed).
void CloseLog();

// Whether the log is wanted now: key Log of section Debug in SharedFiles.ini
// beside the program decides when present ("1"/"0" and the other boolean
// words, and any other text means on); otherwise the per-user LogModeOn
// value of the product's key (missing means off).
bool IsLogEnabled();

// Takes the decision and the folder away from the settings while `active`
// (an active override with an empty folder is an internal error). Nothing in
// the agent sets it: it lets a host program or a test place the log.
void SetLogOverride(bool active, bool enabled, const Tsl::CUnicodeString& directory);

// Forgets the state of this run, a failed open included, so that the next
// entry decides and opens anew. For hosts and tests; the agent never calls it.
void ResetLog();
