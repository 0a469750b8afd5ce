// Launching the main program and the trainer: finding their files (setup
// value, App Paths, the agent's own folder), starting them, waiting until the
// main program is ready for hook messages, and handing it the foreground.
// Free functions without state, callable from either thread of the agent.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "unicodestring.h"

// A path buffer: PathBufferSize units, cleared before use. Registry reads
// into it are told PathCapacity.
const int32_t PathCapacity = 260;
const int32_t PathBufferSize = PathCapacity + 1;

// Where the main program's file and the trainer's are registered, below
// HKEY_LOCAL_MACHINE.
extern const wchar_t MirdalSetupKey[];        // holds MirdalPathValueName
extern const wchar_t MirdalPathValueName[];
extern const wchar_t MirdalAppPathsKey[];     // default value: the main program's path
extern const wchar_t DrillixAppPathsKey[];    // default value: the trainer's path
// The main program holds this mutex while it initialises. A plain name with
// neither namespace prefix: the main program creates it under this name.
extern const wchar_t MirdalReadyMutexName[];
// Caption of every box shown by launching.
extern const wchar_t LaunchBoxCaption[];

// Reads the string value `valueName` (empty: the default value) of
// root\keyPath into `buffer`. The key is opened one part at a time. Only
// half of `capacity` is offered to the system as bytes, so a text of
// capacity / 2 units or more (with its terminator) does not fit and the read
// fails: callers then ask their next source. True when the value was read,
// its size is not above `capacity` and its type is REG_SZ. A key path of
// more than PathCapacity units gives false.
bool ReadRegistryPath(wchar_t* buffer, int32_t capacity, const wchar_t* keyPath,
                      const wchar_t* valueName, HKEY root);

// The main program's file into `buffer` (PathBufferSize units): the setup
// value MirdalPath, else the App Paths entry, else "Mirdal.exe" in the folder
// of the module `instance`, which is not tested for existence. False only
// when every source fails.
bool FindMirdalExecutable(HINSTANCE instance, wchar_t* buffer);
// The trainer's file: the App Paths entry, else "Drillix.exe" in the folder
// of `instance`.
bool FindDrillixExecutable(HINSTANCE instance, wchar_t* buffer);

// Starts the main program with `arguments` and waits until it is ready (up to
// a minute for its main window, and a minute more for the end of its
// initialisation). Returns its main window, or null: not found, not started
// (each with a system-modal box) or not ready in time.
HWND RunMirdal(HINSTANCE instance, const Tsl::CUnicodeString& arguments);
// Starts the trainer with `arguments`; waits for nothing. True when the
// process was created. Only a trainer that can't be found gets a box.
bool RunDrillix(HINSTANCE instance, const Tsl::CUnicodeString& arguments);

// Looks for the main window once a second for a minute; the window once its
// program has finished initialising, else null.
HWND WaitForMirdalWindow();
// Waits up to a minute for the main program to let go of the ready mutex.
// True when the wait ended for any reason but the time-out.
bool WaitForMirdalInitialization();
// Shows, restores and activates the main program's windows; does nothing
// without its application window.
void BringMirdalToFront();
// Lets the process of `window` take the foreground. False for a null window
// or one whose process is unknown.
bool AllowForeground(HWND window);

// ---- Test seams ------------------------------------------------------------------------

// The box shown when a program can't be found or started; MessageBoxW
// unless a test replaces it. Returns the box function it replaced; null goes
// back to MessageBoxW.
typedef int(WINAPI* LaunchBoxFunction)(HWND owner, const wchar_t* text, const wchar_t* caption,
                                       UINT style);
LaunchBoxFunction SetLaunchBoxFunction(LaunchBoxFunction function);

// How long the waits last: the window is looked for until `windowWaitMs`
// have passed, and the ready mutex waited for `mutexWaits` times one second.
// The agent's own are 60000 and 60; tests shorten them to reach the time-outs.
void SetLaunchWaitLimits(uint32_t windowWaitMs, int32_t mutexWaits);
