// The two enumerations of a rebuild: the DirectShow filter mapper (with the interface probe)
// and the legacy registrations under HKEY_CLASSES_ROOT "Filter".
#include "plugin_p.h"

#include <emmintrin.h>
#include <strmif.h>
#include <string.h>

#include <vector>

namespace ky::plugin {

namespace {

const CLSID kClsidFilterMapper = {0xE436EBB2, 0x524F, 0x11CE, {0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
const IID kIidFilterMapper = {0x56A868A3, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
const IID kIidBaseFilter = {0x56A86895, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
const IID kIidExtension = {0x8568D2A1, 0x2A86, 0x11D3, {0x9E, 0x94, 0x00, 0xC0, 0x4F, 0x68, 0xBE, 0x44}};
// Major type "auds".
const GUID kMediaTypeAudio = {0x73647561, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

bool Same(const GUID &a, const GUID &b) { return memcmp(&a, &b, sizeof(GUID)) == 0; }

// The ignored bit of a filter that enters the list: the deny list or the user's mark kept in
// the previous list.
DWORD IgnoredBit(const GUID &clsid, const KYPLUGINNODE *previous) {
  if (IsDenied(clsid)) return KYPLUGIN_F_IGNORED;
  const KYPLUGINNODE *old = Find(const_cast<KYPLUGINNODE *>(previous), clsid);
  return old ? (old->flags & KYPLUGIN_F_IGNORED) : 0;
}

// Foreign plug-ins may leave the floating-point unit in any state (masks, precision,
// rounding); both the x87 unit and the SSE control register go back to the platform's
// defaults before the next one is created.
void ResetFloatingPoint() {
  const unsigned short x87Default = 0x027F; // all exceptions masked, 53-bit, round to nearest
  __asm__ __volatile__("fninit\n\tfldcw %0" : : "m"(x87Default));
  _mm_setcsr(0x1F80);
}

DWORD ReadDword(HKEY key, const char *name, DWORD fallback) {
  DWORD v = 0, type = 0, size = sizeof v;
  if (RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE *>(&v), &size) !=
          ERROR_SUCCESS ||
      type != REG_DWORD || size != sizeof v)
    return fallback;
  return v;
}

// Whether a pin's "Types" key lists the audio major type.
bool PinTakesAudio(HKEY pin) {
  HKEY types;
  if (RegOpenKeyExA(pin, "Types", 0, KEY_READ, &types) != ERROR_SUCCESS) return false;
  bool audio = false;
  char name[64];
  for (DWORD i = 0; !audio; ++i) {
    DWORD len = sizeof name;
    const LONG r = RegEnumKeyExA(types, i, name, &len, nullptr, nullptr, nullptr, nullptr);
    if (r == ERROR_MORE_DATA) continue;
    if (r != ERROR_SUCCESS) break;
    GUID major;
    audio = ParseGuid(name, &major) && Same(major, kMediaTypeAudio);
  }
  RegCloseKey(types);
  return audio;
}

// A filter's wide name in the ANSI code page, cut to 63 characters.
void WideName(const wchar_t *wide, char out[64]) {
  out[0] = 0;
  if (!wide) return;
  const int size = WideCharToMultiByte(CP_ACP, 0, wide, -1, nullptr, 0, nullptr, nullptr);
  if (size <= 0) return;
  std::vector<char> all(size);
  if (WideCharToMultiByte(CP_ACP, 0, wide, -1, all.data(), size, nullptr, nullptr) > 0)
    lstrcpynA(out, all.data(), 64);
}

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

} // namespace

bool ProbeExtension(const GUID &clsid) {
  if (IsNeverInstantiated(clsid)) return false;
  ResetFloatingPoint();
  IUnknown *filter = nullptr;
  if (FAILED(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER,
                              kIidBaseFilter, reinterpret_cast<void **>(&filter))) ||
      !filter)
    return false;
  IUnknown *ext = nullptr;
  const bool offered = SUCCEEDED(filter->QueryInterface(kIidExtension, reinterpret_cast<void **>(&ext)));
  if (ext) ext->Release();
  filter->Release();
  return offered;
}

// The mapper is asked for every filter, whatever its merit, with an input pin and an output
// pin of the audio major type (any subtype): the in-place effects. Renderers and sources
// (audio on one side only) are not effects and are left out.
void EnumerateMapper(KYPLUGINNODE **head, const KYPLUGINNODE *previous) {
  IFilterMapper *mapper = nullptr;
  if (FAILED(CoCreateInstance(kClsidFilterMapper, nullptr, CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER,
                              kIidFilterMapper, reinterpret_cast<void **>(&mapper))) ||
      !mapper)
    return;
  IEnumRegFilters *filters = nullptr;
  if (SUCCEEDED(mapper->EnumMatchingFilters(&filters, 0, TRUE, kMediaTypeAudio, GUID_NULL, FALSE,
                                            TRUE, kMediaTypeAudio, GUID_NULL)) &&
      filters) {
    for (;;) {
      REGFILTER *found = nullptr;
      ULONG fetched = 0;
      if (filters->Next(1, &found, &fetched) != S_OK || fetched != 1 || !found) break;
      const GUID clsid = found->Clsid;
      char name[64] = {0};
      WideName(found->Name, name);
      CoTaskMemFree(found);
      if (KYPLUGINNODE *known = Find(*head, clsid)) {
        if (!(known->flags & KYPLUGIN_F_IGNORED)) {
          known->flags &= ~KYPLUGIN_F_EXTENSION;
          if (ProbeExtension(clsid)) known->flags |= KYPLUGIN_F_EXTENSION;
        }
        continue;
      }
      DWORD flags = KYPLUGIN_F_VALID | IgnoredBit(clsid, previous);
      if (ProbeExtension(clsid)) flags |= KYPLUGIN_F_EXTENSION;
      KYPLUGINNODE *n = NewNode(clsid, flags, name);
      if (!n) break; // out of memory: keep what was gathered
      n->next = *head;
      *head = n;
    }
    filters->Release();
  }
  mapper->Release();
}

// A legacy registration is an effect when its pins under "CLSID\{clsid}\Pins" include an
// input pin ("Direction" 0, the default when absent) and an output pin ("Direction" 1) that
// both list the audio major type under "Types" (any subtype). Anything else - a renderer,
// a source, a video filter, a class without pins - is not taken.
DWORD LegacyType(HKEY clsidRoot, const GUID &clsid) {
  char path[64];
  FormatGuid(clsid, path);
  lstrcatA(path, "\\Pins");
  HKEY pins;
  if (RegOpenKeyExA(clsidRoot, path, 0, KEY_READ, &pins) != ERROR_SUCCESS) return 0;
  bool audioIn = false, audioOut = false;
  char pinName[256];
  for (DWORD i = 0;; ++i) {
    DWORD len = sizeof pinName;
    const LONG r = RegEnumKeyExA(pins, i, pinName, &len, nullptr, nullptr, nullptr, nullptr);
    if (r == ERROR_MORE_DATA) continue;
    if (r != ERROR_SUCCESS) break;
    HKEY pin;
    if (RegOpenKeyExA(pins, pinName, 0, KEY_READ, &pin) != ERROR_SUCCESS) continue;
    if (PinTakesAudio(pin)) {
      if (ReadDword(pin, "Direction", 0) != 0)
        audioOut = true;
      else
        audioIn = true;
    }
    RegCloseKey(pin);
  }
  RegCloseKey(pins);
  return audioIn && audioOut ? KYPLUGIN_TYPE_DXFILTER : 0;
}

// Registry names are written by installers: the adjustment trims blanks and line breaks at
// both ends and folds each inner run of them into one space, so that menus line up; a name
// that is empty afterwards becomes the braced CLSID, so that every entry can be told apart.
void AdjustName(const char *raw, const GUID &clsid, char out[64]) {
  int o = 0;
  bool pendingSpace = false;
  for (const char *p = raw ? raw : ""; *p && o < 63; ++p) {
    if (IsBlank(*p)) {
      pendingSpace = o > 0;
      continue;
    }
    if (pendingSpace) {
      if (o >= 62) break;
      out[o++] = ' ';
      pendingSpace = false;
    }
    out[o++] = *p;
  }
  out[o] = 0;
  if (o == 0) FormatGuid(clsid, out);
}

void EnumerateLegacy(KYPLUGINNODE **head, const KYPLUGINNODE *previous) {
  HKEY filterKey, clsidKey;
  if (RegOpenKeyExA(HKEY_CLASSES_ROOT, "Filter", 0, KEY_READ, &filterKey) != ERROR_SUCCESS) return;
  if (RegOpenKeyExA(HKEY_CLASSES_ROOT, "CLSID", 0, KEY_READ, &clsidKey) != ERROR_SUCCESS) {
    RegCloseKey(filterKey);
    return;
  }
  char keyName[41];
  for (DWORD i = 0;; ++i) {
    DWORD len = sizeof keyName;
    const LONG r = RegEnumKeyExA(filterKey, i, keyName, &len, nullptr, nullptr, nullptr, nullptr);
    if (r == ERROR_MORE_DATA) continue;
    if (r != ERROR_SUCCESS) break;
    GUID clsid;
    if (!ParseGuid(keyName, &clsid) || Find(*head, clsid)) continue;
    if (LegacyType(clsidKey, clsid) != KYPLUGIN_TYPE_DXFILTER) continue;
    char raw[64] = {0};
    HKEY entry;
    if (RegOpenKeyExA(filterKey, keyName, 0, KEY_READ, &entry) == ERROR_SUCCESS) {
      ReadKeyName(entry, raw);
      RegCloseKey(entry);
    }
    const DWORD flags = KYPLUGIN_F_VALID | IgnoredBit(clsid, previous);
    char name[64];
    if (flags & KYPLUGIN_F_IGNORED)
      lstrcpynA(name, raw, sizeof name);
    else
      AdjustName(raw, clsid, name);
    KYPLUGINNODE *n = NewNode(clsid, flags, name);
    if (!n) break;
    n->next = *head;
    *head = n;
  }
  RegCloseKey(clsidKey);
  RegCloseKey(filterKey);
}

} // namespace ky::plugin
