// Private declarations of the plug-in discovery family: the registry cache, the two
// enumerations and the node helpers shared by plugin.cpp, plugin_cache.cpp, plugin_scan.cpp.
#pragma once

#include <windows.h>

#include "ky_plugin.h"

namespace ky::plugin {

// Registry locations (HKEY_LOCAL_MACHINE for the cache, HKEY_CLASSES_ROOT for the rest).
inline constexpr const char *kCacheKey = "Software\\Orvanel\\DXCache";
inline constexpr const char *kLegacyFilterKey = "filter\\";
inline constexpr const char *kCategoryInstanceKey =
    "CLSID\\{083863F1-70DE-11d0-BD40-00A0C911CE86}\\Instance\\";
inline constexpr DWORD kCacheVersion = 2;
inline constexpr DWORD kScanTimeoutMs = 240000;
inline constexpr const char *kGrovelEventName = "Orvanel_Grovel_Event";

// Four 32-bit wrap-around sums over the CLSIDs named by a key's subkeys.
struct Fingerprint {
  DWORD sum[4];
  bool operator==(const Fingerprint &o) const {
    return sum[0] == o.sum[0] && sum[1] == o.sum[1] && sum[2] == o.sum[2] && sum[3] == o.sum[3];
  }
};

// ---- GUID text ----
// Parses the braced registry form "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" (hex digits in
// either case, nothing before or after). Never consults the registry, unlike CLSIDFromString.
bool ParseGuid(const char *text, GUID *out);
// Writes the braced upper-case form (38 characters and the terminator) into buf[39].
void FormatGuid(const GUID &g, char *buf);

// ---- built-in lists ----
bool IsDenied(const GUID &clsid);          // system filters always marked ignored
bool IsNeverInstantiated(const GUID &clsid); // filters the interface probe never creates

// ---- nodes ----
KYPLUGINNODE *NewNode(const GUID &clsid, DWORD flags, const char *name); // null when out of memory
void FreeNodes(KYPLUGINNODE *head);
KYPLUGINNODE *Find(KYPLUGINNODE *head, const GUID &clsid);
// Sorts by name (lstrcmpiA order, stable) and numbers the index fields 0, 1, 2, ...
KYPLUGINNODE *SortAndNumber(KYPLUGINNODE *head);
// Copies at most 63 characters and terminates.
void SetName(KYPLUGINNODE *n, const char *name);

// The default value of a key as text cut to 63 characters; empty when absent or not text.
void ReadKeyName(HKEY key, char out[64]);

// ---- cache ----
Fingerprint KeyFingerprint(HKEY root, const char *path);
// Validity of the open cache key under the given list flags.
bool CacheIsValid(HKEY cache, DWORD listFlags);
// Reads the cache entries (pushed on the front of the list, numbered by a running count).
KYPLUGINNODE *ReadCache(HKEY cache);
// Deletes the whole cache key and writes the list and the fingerprints. false on a failure.
bool WriteCache(const KYPLUGINNODE *head, DWORD listFlags);

// ---- enumerations of a rebuild (COM initialised by the caller) ----
// The filter mapper's filters taking and giving audio; `previous` carries ignore marks.
void EnumerateMapper(KYPLUGINNODE **head, const KYPLUGINNODE *previous);
// The legacy registrations under HKEY_CLASSES_ROOT "Filter" whose pins make them effects.
void EnumerateLegacy(KYPLUGINNODE **head, const KYPLUGINNODE *previous);
// Whether the filter offers the extension interface (creates it unless never-instantiate).
bool ProbeExtension(const GUID &clsid);
// Plug-in type of a legacy registration read from "{clsid}\Pins" under the open
// HKEY_CLASSES_ROOT "CLSID" key: KYPLUGIN_TYPE_DXFILTER for an audio effect, 0 otherwise.
DWORD LegacyType(HKEY clsidRoot, const GUID &clsid);
// Display name of a filter taken from the registry (see plugin_scan.cpp).
void AdjustName(const char *raw, const GUID &clsid, char out[64]);

// The resource module installed for the running rebuild (0 when none).
HMODULE CurrentResourceModule();

} // namespace ky::plugin
