// Small operations between the agent and the foundation: the interface
// language stored for the user or the machine, the choice of a language that
// can really be shown, and the names every program of the installation shares.
#pragma once

#include <windows.h>
#include <stdint.h>

// The per-installation switch board beside the program; it need not exist.
// Key Log of section Debug switches the agent log.
extern const wchar_t SharedFilesIniName[];
// Names of the installation's vocabulary that the agent only carries.
extern const wchar_t ArchiveDumpIniName[];
extern const wchar_t ByInstallerName[];
// The product's registry key, below HKEY_CURRENT_USER and HKEY_LOCAL_MACHINE.
extern const wchar_t ProductKeyPath[];

// One stored language: value `valueName` of root\keyPath, a REG_SZ of digits.
// Anything unusable (no key, no value, another type, 34 bytes or more, an odd
// size) gives `defaultValue`; text that is no number gives 0.
int32_t ReadLanguageValue(HKEY root, const wchar_t* keyPath, const wchar_t* valueName,
                          int32_t defaultValue);

// The language stored under keyPath for this user, else for the machine,
// else 0. GetInterfaceLanguage reads the product's key.
uint32_t ReadInterfaceLanguage(const wchar_t* keyPath);
uint32_t GetInterfaceLanguage();

// The first of `preferred`, `fallback` and the languages of the loaded
// resource modules (by index) that has a resource module and is valid on
// this system. None at all is an internal error of TesselExt at line 27, and 0.
uint32_t ChooseShownLanguage(uint32_t preferred, uint32_t fallback);
