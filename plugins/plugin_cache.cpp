// The plug-in cache under HKEY_LOCAL_MACHINE "Software\Orvanel\DXCache": the fingerprints
// of the filter registrations, the validity test, reading and writing, and the node helpers.
#include "plugin_p.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <vector>

namespace ky::plugin {

namespace {

// System filters that are always marked ignored.
const GUID kDenyList[] = {
    {0x4A2286E0, 0x7BEF, 0x11CE, {0x9B, 0xD9, 0x00, 0x00, 0xE2, 0x02, 0x59, 0x9C}},
    {0x52B63860, 0xDC93, 0x11CE, {0xA0, 0x99, 0x00, 0xAA, 0x00, 0x47, 0x9A, 0x58}},
    {0x6A08CF80, 0x0E18, 0x11CF, {0xA2, 0x4D, 0x00, 0x20, 0xAF, 0xD7, 0x97, 0x67}},
    {0xB4CA2970, 0xDD2B, 0x11D0, {0x9D, 0xFA, 0x00, 0xAA, 0x00, 0xAF, 0x34, 0x94}},
    {0xF8388A40, 0xD5BB, 0x11D0, {0xBE, 0x5A, 0x00, 0x80, 0xC7, 0x06, 0x56, 0x8E}},
    {0x022B8142, 0x0946, 0x11CF, {0xBC, 0xB1, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}},
    {0x08AF6540, 0x4F21, 0x11CF, {0xAA, 0xCB, 0x00, 0x20, 0xAF, 0x0B, 0x99, 0xA3}},
    {0x46E32B01, 0xA465, 0x11D1, {0xB5, 0x50, 0x00, 0x60, 0x97, 0x24, 0x2D, 0x8D}},
    {0x73F7A062, 0x8829, 0x11D1, {0xB5, 0x50, 0x00, 0x60, 0x97, 0x24, 0x2D, 0x8D}},
    {0x86D0F280, 0x2510, 0x11D1, {0x9B, 0x67, 0x00, 0x60, 0x97, 0xBA, 0x97, 0x7C}},
    {0x4009F700, 0xAEBA, 0x11D1, {0x83, 0x44, 0x00, 0xC0, 0x4F, 0xB9, 0x2E, 0xB7}},
    {0x38BE3000, 0xDBF4, 0x11D0, {0x86, 0x0E, 0x00, 0xA0, 0x24, 0xCF, 0xEF, 0x6D}},
    {0xDA6B07A0, 0xAB5D, 0x11D0, {0x9D, 0xD3, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0xDA6B07B0, 0xAB5D, 0x11D0, {0x9D, 0xD3, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x17CCA71B, 0xECD7, 0x11D0, {0xB9, 0x08, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}},
    {0xAF7D8180, 0xA8F9, 0x11CF, {0x9A, 0x46, 0x00, 0xAA, 0x00, 0xB7, 0xDA, 0xD1}},
    {0x1AE60860, 0x8297, 0x11D0, {0x96, 0x43, 0x00, 0xAA, 0x00, 0xA8, 0x9C, 0x1D}},
    {0x22E24591, 0x49D0, 0x11D2, {0xBB, 0x50, 0x00, 0x60, 0x08, 0x32, 0x00, 0x64}},
    {0xCDCDD6A0, 0xC016, 0x11D0, {0x82, 0xA4, 0x00, 0xAA, 0x00, 0xB5, 0xCA, 0x1B}},
    {0x26721E10, 0x390C, 0x11D0, {0x8A, 0x22, 0x00, 0xA0, 0xC9, 0x0C, 0x91, 0x56}},
    {0xA3BBEF80, 0xC3FD, 0x11D1, {0x9A, 0x70, 0x00, 0xA0, 0xC9, 0x0D, 0xA1, 0xEF}},
    {0x145BC782, 0xFC0C, 0x11CF, {0xBE, 0x4B, 0x00, 0xAA, 0x00, 0x3F, 0x29, 0xA1}},
    {0xDEDDFB70, 0x8E98, 0x11D0, {0x85, 0x42, 0x00, 0xA0, 0x24, 0xD1, 0x81, 0xB8}},
    {0xDEDDFB71, 0x8E98, 0x11D0, {0x85, 0x42, 0x00, 0xA0, 0x24, 0xD1, 0x81, 0xB8}},
    {0xDEDDFB72, 0x8E98, 0x11D0, {0x85, 0x42, 0x00, 0xA0, 0x24, 0xD1, 0x81, 0xB8}},
    {0xDEDDFB73, 0x8E98, 0x11D0, {0x85, 0x42, 0x00, 0xA0, 0x24, 0xD1, 0x81, 0xB8}},
    {0xDEDDFB74, 0x8E98, 0x11D0, {0x85, 0x42, 0x00, 0xA0, 0x24, 0xD1, 0x81, 0xB8}},
    {0xDEDDFB75, 0x8E98, 0x11D0, {0x85, 0x42, 0x00, 0xA0, 0x24, 0xD1, 0x81, 0xB8}},
    {0xDEDDFB76, 0x8E98, 0x11D0, {0x85, 0x42, 0x00, 0xA0, 0x24, 0xD1, 0x81, 0xB8}},
    {0xE1DA0800, 0x4A4F, 0x11D2, {0xA8, 0xDC, 0x00, 0xE0, 0x29, 0x22, 0x5A, 0x70}},
    {0xE1F79440, 0x812F, 0x11D1, {0xBF, 0xA2, 0x00, 0xA0, 0x24, 0xEC, 0x9D, 0xA6}},
    {0xC1F400A0, 0x3F08, 0x11D3, {0x9F, 0x0B, 0x00, 0x60, 0x08, 0x03, 0x9E, 0x37}},
};
static_assert(sizeof kDenyList / sizeof kDenyList[0] == 32, "deny list has 32 entries");

// Filters that are listed but never created by the interface probe.
const GUID kNeverInstantiate[] = {
    {0x1C09DD21, 0x61AD, 0x11D1, {0xA1, 0x14, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}},
    {0x7F936641, 0x17DE, 0x11D1, {0xA1, 0x12, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}},
    {0x98196740, 0x489E, 0x11D2, {0x9C, 0x51, 0x00, 0x60, 0x08, 0x73, 0x44, 0xED}},
    {0x98196742, 0x489E, 0x11D2, {0x9C, 0x51, 0x00, 0x60, 0x08, 0x73, 0x44, 0xED}},
    {0xCADE88C1, 0x6BFB, 0x11D1, {0xA1, 0x14, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}},
    {0xD9B2A441, 0xA3E4, 0x11D2, {0x9C, 0x54, 0x00, 0x60, 0x08, 0x73, 0x44, 0xED}},
};

bool Same(const GUID &a, const GUID &b) { return memcmp(&a, &b, sizeof(GUID)) == 0; }

template <size_t N>
bool Listed(const GUID (&table)[N], const GUID &g) {
  for (const GUID &e : table)
    if (Same(e, g)) return true;
  return false;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Reads `digits` hex digits at text[*pos]; false when one is missing.
bool Hex(const char *text, int *pos, int digits, unsigned long *out) {
  unsigned long v = 0;
  for (int i = 0; i < digits; ++i) {
    const int d = HexDigit(text[*pos]);
    if (d < 0) return false;
    v = (v << 4) | static_cast<unsigned long>(d);
    ++*pos;
  }
  *out = v;
  return true;
}

bool Expect(const char *text, int *pos, char c) {
  if (text[*pos] != c) return false;
  ++*pos;
  return true;
}

// A REG_BINARY value of exactly `size` bytes, else false (the caller then uses zeros).
bool ReadBinary(HKEY key, const char *name, void *out, DWORD size) {
  BYTE buf[32];
  DWORD type = 0, got = sizeof buf;
  if (RegQueryValueExA(key, name, nullptr, &type, buf, &got) != ERROR_SUCCESS) return false;
  if (type != REG_BINARY || got != size) return false;
  memcpy(out, buf, size);
  return true;
}

Fingerprint ReadChecksum(HKEY key, const char *name) {
  Fingerprint f = {};
  if (!ReadBinary(key, name, f.sum, sizeof f.sum)) memset(&f, 0, sizeof f);
  return f;
}

bool WriteChecksums(HKEY key, const char *base, const Fingerprint &f) {
  char name[32];
  static const char *const kSuffix[] = {"", "Track", "_2.0"};
  for (const char *s : kSuffix) {
    lstrcpynA(name, base, sizeof name);
    lstrcatA(name, s);
    if (RegSetValueExA(key, name, 0, REG_BINARY, reinterpret_cast<const BYTE *>(f.sum),
                       sizeof f.sum) != ERROR_SUCCESS)
      return false;
  }
  return true;
}

} // namespace

bool ParseGuid(const char *t, GUID *out) {
  if (!t || !out) return false;
  int p = 0;
  unsigned long d1, d2, d3, b;
  GUID g;
  if (!Expect(t, &p, '{') || !Hex(t, &p, 8, &d1) || !Expect(t, &p, '-') || !Hex(t, &p, 4, &d2) ||
      !Expect(t, &p, '-') || !Hex(t, &p, 4, &d3) || !Expect(t, &p, '-'))
    return false;
  g.Data1 = d1;
  g.Data2 = static_cast<USHORT>(d2);
  g.Data3 = static_cast<USHORT>(d3);
  for (int i = 0; i < 8; ++i) {
    if (i == 2 && !Expect(t, &p, '-')) return false;
    if (!Hex(t, &p, 2, &b)) return false;
    g.Data4[i] = static_cast<BYTE>(b);
  }
  if (!Expect(t, &p, '}') || t[p] != 0) return false;
  *out = g;
  return true;
}

void FormatGuid(const GUID &g, char *buf) {
  wsprintfA(buf, "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
            static_cast<unsigned long>(g.Data1), g.Data2, g.Data3, g.Data4[0], g.Data4[1],
            g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
}

bool IsDenied(const GUID &clsid) { return Listed(kDenyList, clsid); }
bool IsNeverInstantiated(const GUID &clsid) { return Listed(kNeverInstantiate, clsid); }

void ReadKeyName(HKEY key, char out[64]) {
  out[0] = 0;
  DWORD type = 0, size = 0;
  if (RegQueryValueExA(key, nullptr, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) return;
  if (type != REG_SZ && type != REG_EXPAND_SZ) return;
  std::vector<char> buf(size + 1, 0);
  DWORD got = size;
  if (RegQueryValueExA(key, nullptr, nullptr, &type, reinterpret_cast<BYTE *>(buf.data()), &got) !=
      ERROR_SUCCESS)
    return;
  buf[std::min<size_t>(got, size)] = 0;
  lstrcpynA(out, buf.data(), 64);
}

// ---- nodes ----

void SetName(KYPLUGINNODE *n, const char *name) { lstrcpynA(n->name, name ? name : "", 64); }

KYPLUGINNODE *NewNode(const GUID &clsid, DWORD flags, const char *name) {
  auto *n = static_cast<KYPLUGINNODE *>(calloc(1, sizeof(KYPLUGINNODE)));
  if (!n) return nullptr;
  n->type = KYPLUGIN_TYPE_DXFILTER;
  n->flags = flags;
  n->clsid = clsid;
  SetName(n, name);
  return n;
}

void FreeNodes(KYPLUGINNODE *head) {
  while (head) {
    KYPLUGINNODE *next = head->next;
    free(head);
    head = next;
  }
}

KYPLUGINNODE *Find(KYPLUGINNODE *head, const GUID &clsid) {
  for (; head; head = head->next)
    if (Same(head->clsid, clsid)) return head;
  return nullptr;
}

KYPLUGINNODE *SortAndNumber(KYPLUGINNODE *head) {
  std::vector<KYPLUGINNODE *> nodes;
  for (KYPLUGINNODE *n = head; n; n = n->next) nodes.push_back(n);
  std::stable_sort(nodes.begin(), nodes.end(), [](const KYPLUGINNODE *a, const KYPLUGINNODE *b) {
    return lstrcmpiA(a->name, b->name) < 0;
  });
  KYPLUGINNODE *first = nullptr, **link = &first;
  DWORD index = 0;
  for (KYPLUGINNODE *n : nodes) {
    n->index = index++;
    *link = n;
    link = &n->next;
  }
  *link = nullptr;
  return first;
}

// ---- cache ----

Fingerprint KeyFingerprint(HKEY root, const char *path) {
  Fingerprint f = {};
  HKEY key;
  if (RegOpenKeyExA(root, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return f;
  char name[256];
  for (DWORD i = 0;; ++i) {
    DWORD len = sizeof name;
    const LONG r = RegEnumKeyExA(key, i, name, &len, nullptr, nullptr, nullptr, nullptr);
    if (r == ERROR_MORE_DATA) continue; // far too long to be a CLSID
    if (r != ERROR_SUCCESS) break;
    GUID g;
    if (!ParseGuid(name, &g)) continue;
    DWORD w[4];
    memcpy(w, &g, sizeof w); // the 16 bytes as four little-endian words
    for (int k = 0; k < 4; ++k) f.sum[k] += w[k];
  }
  RegCloseKey(key);
  return f;
}

bool CacheIsValid(HKEY cache, DWORD listFlags) {
  DWORD version = 0;
  if (!ReadBinary(cache, "Version", &version, sizeof version)) version = 0;
  if (version < kCacheVersion) return false;
  const bool mapper = (listFlags & KYPLUGIN_LIST_MAPPER) != 0;
  const Fingerprint am1 = ReadChecksum(cache, "CheckSumAM1");
  if (!(am1 == ReadChecksum(cache, "CheckSumAM1Track"))) return false;
  const Fingerprint dx5 = ReadChecksum(cache, "CheckSumDX5");
  if (mapper && !(dx5 == ReadChecksum(cache, "CheckSumDX5Track"))) return false;
  if (!(ReadChecksum(cache, "CheckSumAM1_2.0") == am1)) return false;
  if (mapper && !(ReadChecksum(cache, "CheckSumDX5_2.0") == dx5)) return false;
  if (!(KeyFingerprint(HKEY_CLASSES_ROOT, kLegacyFilterKey) == am1)) return false;
  if (mapper && !(KeyFingerprint(HKEY_CLASSES_ROOT, kCategoryInstanceKey) == dx5)) return false;
  return true;
}

KYPLUGINNODE *ReadCache(HKEY cache) {
  KYPLUGINNODE *head = nullptr;
  DWORD count = 0;
  char keyName[41];
  for (DWORD i = 0;; ++i) {
    DWORD len = sizeof keyName;
    const LONG r = RegEnumKeyExA(cache, i, keyName, &len, nullptr, nullptr, nullptr, nullptr);
    if (r == ERROR_MORE_DATA) continue; // longer than 40 characters: not one of ours
    if (r != ERROR_SUCCESS) break;
    GUID clsid;
    if (!ParseGuid(keyName, &clsid)) continue;
    HKEY sub;
    if (RegOpenKeyExA(cache, keyName, 0, KEY_READ, &sub) != ERROR_SUCCESS) continue;
    char name[64];
    ReadKeyName(sub, name);
    DWORD flags = 0, type = 0, size = sizeof flags;
    if (RegQueryValueExA(sub, "Flags", nullptr, &type, reinterpret_cast<BYTE *>(&flags), &size) !=
            ERROR_SUCCESS ||
        type != REG_DWORD || size != sizeof flags)
      flags = KYPLUGIN_F_VALID;
    RegCloseKey(sub);
    if ((flags & KYPLUGIN_F_VALID) != KYPLUGIN_F_VALID) continue;
    if (IsDenied(clsid)) flags |= KYPLUGIN_F_IGNORED;
    KYPLUGINNODE *n = NewNode(clsid, flags, name);
    if (!n) break; // out of memory: keep what was read
    n->index = count++;
    n->next = head;
    head = n;
  }
  return head;
}

bool WriteCache(const KYPLUGINNODE *head, DWORD listFlags) {
  RegDeleteTreeA(HKEY_LOCAL_MACHINE, kCacheKey);
  HKEY cache;
  if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, kCacheKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &cache,
                      nullptr) != ERROR_SUCCESS)
    return false;
  bool ok = true;
  for (const KYPLUGINNODE *n = head; n && ok; n = n->next) {
    char keyName[39];
    FormatGuid(n->clsid, keyName);
    HKEY sub;
    if (RegCreateKeyExA(cache, keyName, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &sub, nullptr) !=
        ERROR_SUCCESS) {
      ok = false;
      break;
    }
    char name[64];
    lstrcpynA(name, n->name, sizeof name);
    ok = RegSetValueExA(sub, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE *>(name),
                        lstrlenA(name) + 1) == ERROR_SUCCESS &&
         RegSetValueExA(sub, "Flags", 0, REG_DWORD, reinterpret_cast<const BYTE *>(&n->flags),
                        sizeof n->flags) == ERROR_SUCCESS;
    RegCloseKey(sub);
  }
  if (ok) {
    const DWORD version = kCacheVersion;
    ok = RegSetValueExA(cache, "Version", 0, REG_BINARY, reinterpret_cast<const BYTE *>(&version),
                        sizeof version) == ERROR_SUCCESS &&
         WriteChecksums(cache, "CheckSumAM1", KeyFingerprint(HKEY_CLASSES_ROOT, kLegacyFilterKey));
  }
  if (ok && (listFlags & KYPLUGIN_LIST_MAPPER))
    ok = WriteChecksums(cache, "CheckSumDX5", KeyFingerprint(HKEY_CLASSES_ROOT, kCategoryInstanceKey));
  RegCloseKey(cache);
  return ok;
}

} // namespace ky::plugin
