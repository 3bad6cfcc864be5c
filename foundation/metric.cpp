// Settings store ("metrics"): typed values kept in the registry by number.
//
// A handle owns two open keys: the machine key (HKEY_LOCAL_MACHINE) serves negative numbers,
// the user key (HKEY_CURRENT_USER, or HKEY_LOCAL_MACHINE for a service handle) serves the
// others. The registry serialises access, so nothing here takes a lock.
#include "ky_internal.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr int kPathChars = 260;
const char kOrdinaryFormat[] = "Software\\Orvanel\\%s\\%d.%d\\Metrics";
const char kServiceFormat[] = "SYSTEM\\CurrentControlSet\\Services\\%s\\%d.%d\\Metrics";
// The fixed text in front of the product name of an ordinary path.
const char kOrdinaryPrefix[] = "Software\\Orvanel\\";

bool HasSection(const char *section) { return section && *section; }

// Formats the key path of a product (or service) and version, with an optional section.
void FormatPath(char *out, bool service, const char *name, DWORD version, const char *section) {
  int major = (int)((version >> 24) & 0xFF);
  int minor = (int)((version >> 16) & 0xFF);
  int n = snprintf(out, kPathChars, service ? kServiceFormat : kOrdinaryFormat, name, major, minor);
  if (HasSection(section) && n >= 0 && n < kPathChars) snprintf(out + n, kPathChars - n, "\\%s", section);
}

bool IsServicePath(const char *path) {
  static const char kServicePrefix[] = "SYSTEM\\CurrentControlSet\\Services\\";
  return strncmp(path, kServicePrefix, sizeof kServicePrefix - 1) == 0;
}

// The handle an operation works on: -1 stands for the kernel's own settings.
tKYMETRIC *Resolve(HKYMETRIC handle) {
  return handle == KYMETRIC_KERNEL ? ky::g.kernelSettings : handle;
}

// The key serving a number: negative numbers are machine-wide.
HKEY KeyFor(const tKYMETRIC *m, LONG number) { return number < 0 ? m->machineKey : m->userKey; }

// Registry value name of a number for a registry type.
void ValueName(char (&name)[16], LONG number, DWORD regType) {
  unsigned long magnitude = number < 0 ? 0UL - (unsigned long)number : (unsigned long)number;
  const char *prefix = regType == REG_DWORD ? "" : regType == REG_SZ ? "S" : regType == REG_BINARY ? "B" : "Z";
  snprintf(name, sizeof name, "%s%lu", prefix, magnitude);
}

// The key serving a number and the value's name there; null without a handle or key.
HKEY ValueKey(const tKYMETRIC *m, LONG number, DWORD regType, char (&name)[16]) {
  ValueName(name, number, regType);
  return m ? KeyFor(m, number) : nullptr;
}

HRESULT OpenHandle(HKYMETRIC *out, bool service, const char *name, DWORD version, const char *section) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (!name) return E_INVALIDARG;
  auto *m = static_cast<tKYMETRIC *>(calloc(1, sizeof(tKYMETRIC)));
  if (!m) return E_OUTOFMEMORY;
  FormatPath(m->machinePath, service, name, version, section);
  memcpy(m->userPath, m->machinePath, sizeof m->userPath);
  // A key that cannot be created stays null: reads then give defaults and writes fail.
  if (RegCreateKeyA(HKEY_LOCAL_MACHINE, m->machinePath, &m->machineKey) != ERROR_SUCCESS) m->machineKey = nullptr;
  HKEY userRoot = service ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
  if (RegCreateKeyA(userRoot, m->userPath, &m->userKey) != ERROR_SUCCESS) m->userKey = nullptr;
  *out = m;
  return S_OK;
}

void CloseKeys(tKYMETRIC *m) {
  if (m->machineKey) RegCloseKey(m->machineKey);
  if (m->userKey) RegCloseKey(m->userKey);
  m->machineKey = m->userKey = nullptr;
}

HRESULT DeletePath(bool service, const char *name, DWORD version, const char *section) {
  if (!name) return E_INVALIDARG;
  char path[kPathChars];
  FormatPath(path, service, name, version, section);
  KyRegDeleteKey(HKEY_LOCAL_MACHINE, path);
  if (!service) KyRegDeleteKey(HKEY_CURRENT_USER, path);
  return S_OK;
}

// Queries a value of the number's key; true when it exists with the expected type.
// `size` is in: buffer bytes, out: bytes stored.
bool QueryTyped(const tKYMETRIC *m, LONG number, DWORD regType, void *buffer, DWORD *size) {
  char name[16];
  HKEY key = ValueKey(m, number, regType, name);
  if (!key) return false;
  DWORD type = 0;
  LONG rc = RegQueryValueExA(key, name, nullptr, &type, static_cast<BYTE *>(buffer), size);
  return rc == ERROR_SUCCESS && type == regType;
}

bool QueryDword(const tKYMETRIC *m, LONG number, LONG *value) {
  DWORD stored = 0, size = sizeof stored;
  if (!QueryTyped(m, number, REG_DWORD, &stored, &size) || size != sizeof stored) return false;
  *value = (LONG)stored;
  return true;
}

HRESULT SetTyped(HKYMETRIC handle, LONG number, DWORD regType, const void *data, LONG size) {
  tKYMETRIC *m = Resolve(handle);
  char name[16];
  HKEY key = ValueKey(m, number, regType, name);
  if (!key || size < 0 || (!data && size > 0)) return E_FAIL;
  LONG rc = RegSetValueExA(key, name, 0, regType, static_cast<const BYTE *>(data), (DWORD)size);
  return rc == ERROR_SUCCESS ? S_OK : E_FAIL;
}

// Writers of text, text lists and binary blocks: the kernel's own settings hold numbers only.
HRESULT SetBlock(HKYMETRIC handle, LONG number, DWORD regType, const void *data, LONG size) {
  if (handle == KYMETRIC_KERNEL) return E_FAIL;
  return SetTyped(handle, number, regType, data, size);
}

// Reads text or a text list into the caller's buffer, see KyGetMetricStringEx.
LONG GetText(HKYMETRIC handle, LONG number, DWORD regType, char *buffer, LONG size,
             const char *defaultText, BOOL keepEmpty) {
  if (!buffer || size <= 0) return 0;
  tKYMETRIC *m = Resolve(handle);
  DWORD stored = (DWORD)size;
  if (!QueryTyped(m, number, regType, buffer, &stored) || stored > (DWORD)size) stored = 0;
  memset(buffer + stored, 0, (size_t)size - stored);
  if (stored > 1) return (LONG)stored - 1;
  if (stored == 1 && keepEmpty) return 0;
  if (!defaultText) return 0;
  lstrcpynA(buffer, defaultText, size);
  buffer[size - 1] = 0;
  return lstrlenA(buffer);
}

} // namespace

// ---- handles ----

extern "C" HRESULT WINAPI KyMetric_Open(HKYMETRIC *out, const char *product, DWORD version, const char *section) {
  return ky::GuardHr([&] { return OpenHandle(out, false, product, version, section); });
}

extern "C" HRESULT WINAPI KyMetric_OpenService(HKYMETRIC *out, const char *service, DWORD version,
                                               const char *section) {
  return ky::GuardHr([&] { return OpenHandle(out, true, service, version, section); });
}

extern "C" HRESULT WINAPI KyMetric_OpenSubKey(HKYMETRIC *out, HKYMETRIC parent, const char *section) {
  return ky::GuardHr([&]() -> HRESULT {
    if (!out) return E_POINTER;
    *out = nullptr;
    tKYMETRIC *p = Resolve(parent);
    if (!p) return E_FAIL;
    // The user path reads "<prefix><product>\<major>.<minor>\Metrics..."; the prefix itself
    // is skipped unchecked, by its length.
    const char *path = p->userPath;
    size_t skip = sizeof kOrdinaryPrefix - 1;
    if (strnlen(path, kPathChars) < skip) return E_FAIL;
    const char *s = path + skip;
    const char *slash = strchr(s, '\\');
    if (!slash) return E_FAIL;
    char product[kPathChars];
    size_t len = (size_t)(slash - s);
    if (len >= sizeof product) len = sizeof product - 1;
    memcpy(product, s, len);
    product[len] = 0;
    s = slash + 1;
    DWORD major = 0, minor = 0;
    for (; *s >= '0' && *s <= '9'; ++s) major = major * 10 + (DWORD)(*s - '0');
    s = strchr(s, '.');
    if (s)
      for (++s; *s >= '0' && *s <= '9'; ++s) minor = minor * 10 + (DWORD)(*s - '0');
    return OpenHandle(out, false, product, (minor | major * 256) * 65536, section);
  });
}

extern "C" HRESULT WINAPI KyMetric_Close(HKYMETRIC handle) {
  return ky::GuardHr([&]() -> HRESULT {
    // The kernel's handle belongs to the module frame and is closed at detach.
    if (!handle || handle == KYMETRIC_KERNEL) return S_OK;
    CloseKeys(handle);
    free(handle);
    return S_OK;
  });
}

extern "C" HRESULT WINAPI KyMetric_CloseAndDeleteKey(HKYMETRIC handle) {
  return ky::GuardHr([&]() -> HRESULT {
    if (!handle || handle == KYMETRIC_KERNEL) return E_FAIL;
    CloseKeys(handle);
    KyRegDeleteKey(HKEY_LOCAL_MACHINE, handle->machinePath);
    KyRegDeleteKey(IsServicePath(handle->userPath) ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER, handle->userPath);
    free(handle);
    return S_OK;
  });
}

extern "C" HRESULT WINAPI KyMetric_DeleteAll(const char *product, DWORD version) {
  return ky::GuardHr([&] { return DeletePath(false, product, version, nullptr); });
}

extern "C" HRESULT WINAPI KyMetric_DeleteAllService(const char *service, DWORD version) {
  return ky::GuardHr([&] { return DeletePath(true, service, version, nullptr); });
}

extern "C" HRESULT WINAPI KyMetric_DeleteKey(const char *product, DWORD version, const char *section) {
  return ky::GuardHr([&] { return DeletePath(false, product, version, section); });
}

extern "C" HRESULT WINAPI KyMetric_DeleteKeyService(const char *service, DWORD version, const char *section) {
  return ky::GuardHr([&] { return DeletePath(true, service, version, section); });
}

// ---- numbers ----

extern "C" LONG WINAPI KyGetMetric(HKYMETRIC handle, LONG number) {
  return ky::Guard<LONG>(0, [&]() -> LONG {
    tKYMETRIC *m = Resolve(handle);
    LONG v = 0;
    return m && QueryDword(m, number, &v) ? v : 0;
  });
}

extern "C" LONG WINAPI KyGetMetricEx(HKYMETRIC handle, LONG number, LONG minimum, LONG maximum, LONG defaultValue) {
  return ky::Guard<LONG>(defaultValue, [&]() -> LONG {
    tKYMETRIC *m = Resolve(handle);
    if (!m) return defaultValue;
    LONG v = defaultValue;
    QueryDword(m, number, &v);
    if (minimum != maximum) {
      if (v < minimum) v = minimum;
      if (v > maximum) v = maximum;
    }
    return v;
  });
}

extern "C" BOOL WINAPI KyGetMetricBool(HKYMETRIC handle, LONG number, BOOL defaultValue) {
  return ky::Guard<BOOL>(defaultValue, [&]() -> BOOL {
    tKYMETRIC *m = Resolve(handle);
    if (!m) return defaultValue;
    LONG v = defaultValue;
    QueryDword(m, number, &v);
    return v != 0;
  });
}

extern "C" HRESULT WINAPI KySetMetric(HKYMETRIC handle, LONG number, LONG value) {
  return ky::GuardHr([&] {
    DWORD stored = (DWORD)value;
    return SetTyped(handle, number, REG_DWORD, &stored, sizeof stored);
  });
}

// ---- binary blocks ----

extern "C" LONG WINAPI KyGetMetricBinary(HKYMETRIC handle, LONG number, void *buffer, LONG size) {
  return ky::Guard<LONG>(0, [&]() -> LONG {
    if (!buffer || size <= 0) return 0;
    tKYMETRIC *m = Resolve(handle);
    DWORD stored = (DWORD)size;
    if (!QueryTyped(m, number, REG_BINARY, buffer, &stored) || stored > (DWORD)size) stored = 0;
    memset(static_cast<BYTE *>(buffer) + stored, 0, (size_t)size - stored);
    return (LONG)stored;
  });
}

extern "C" HRESULT WINAPI KySetMetricBinary(HKYMETRIC handle, LONG number, const void *data, LONG size) {
  return ky::GuardHr([&] { return SetBlock(handle, number, REG_BINARY, data, size); });
}

// ---- text and text lists ----

extern "C" LONG WINAPI KyGetMetricStringEx(HKYMETRIC handle, LONG number, char *buffer, LONG size,
                                           const char *defaultText, BOOL keepEmpty) {
  return ky::Guard<LONG>(0, [&] { return GetText(handle, number, REG_SZ, buffer, size, defaultText, keepEmpty); });
}

extern "C" HRESULT WINAPI KySetMetricString(HKYMETRIC handle, LONG number, const char *text) {
  return ky::GuardHr([&] {
    if (!text) return E_FAIL;
    return SetBlock(handle, number, REG_SZ, text, lstrlenA(text) + 1);
  });
}

extern "C" LONG WINAPI KyGetMetricMultiStringEx(HKYMETRIC handle, LONG number, char *buffer, LONG size,
                                                const char *defaultText, BOOL keepEmpty) {
  return ky::Guard<LONG>(
      0, [&] { return GetText(handle, number, REG_MULTI_SZ, buffer, size, defaultText, keepEmpty); });
}

extern "C" HRESULT WINAPI KySetMetricMultiString(HKYMETRIC handle, LONG number, const void *data, LONG size) {
  return ky::GuardHr([&] { return SetBlock(handle, number, REG_MULTI_SZ, data, size); });
}

// ---- existence and deletion ----

extern "C" HRESULT WINAPI KyDoesMetricExist(HKYMETRIC handle, LONG number, DWORD regType) {
  return ky::GuardHr([&]() -> HRESULT {
    char name[16];
    HKEY key = ValueKey(Resolve(handle), number, regType, name);
    if (!key) return S_FALSE;
    // A one-byte probe: "more data" still proves the value is there.
    BYTE probe[1];
    DWORD type = 0, size = sizeof probe;
    LONG rc = RegQueryValueExA(key, name, nullptr, &type, probe, &size);
    if (rc != ERROR_SUCCESS && rc != ERROR_MORE_DATA) return S_FALSE;
    return type == regType ? S_OK : S_FALSE;
  });
}

extern "C" HRESULT WINAPI KyDeleteMetric(HKYMETRIC handle, LONG number, DWORD regType) {
  return ky::GuardHr([&]() -> HRESULT {
    tKYMETRIC *m = Resolve(handle);
    if (!m) return S_FALSE;
    char name[16];
    HKEY key = ValueKey(m, number, regType, name);
    if (!key) return E_FAIL;
    return RegDeleteValueA(key, name) == ERROR_SUCCESS ? S_OK : E_FAIL;
  });
}

// ---- key trees ----

namespace {

// Deletes root\path with everything below it. Deleting a subkey renumbers the enumeration
// and so skips its neighbour; the outer loop runs again until the key is gone. It stops
// early when a pass makes no progress (a key that cannot be deleted).
bool DeleteTree(HKEY root, const char *path) {
  DWORD lastSubkeys = 0xFFFFFFFF;
  for (;;) {
    HKEY key;
    if (RegOpenKeyExA(root, path, 0, KEY_ALL_ACCESS, &key) != ERROR_SUCCESS) return true;
    DWORD subkeys = 0;
    if (RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, nullptr, nullptr, nullptr,
                         nullptr, nullptr) != ERROR_SUCCESS)
      subkeys = 0;
    if (subkeys) {
      char name[kPathChars];
      for (DWORD i = 0; RegEnumKeyA(key, i, name, sizeof name) == ERROR_SUCCESS; ++i) DeleteTree(key, name);
      RegFlushKey(key);
    }
    RegCloseKey(key);
    bool deleted = RegDeleteKeyA(root, path) == ERROR_SUCCESS;
    RegFlushKey(root);
    if (!deleted && subkeys >= lastSubkeys) return false;
    lastSubkeys = subkeys;
  }
}

} // namespace

extern "C" HRESULT WINAPI KyRegDeleteKey(HKEY root, const char *path) {
  return ky::GuardHr([&]() -> HRESULT {
    // An empty path would name the root itself.
    if (!root || !path || !*path) return E_INVALIDARG;
    return DeleteTree(root, path) ? S_OK : E_FAIL;
  });
}
