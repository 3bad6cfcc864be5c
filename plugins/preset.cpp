// Filter presets: an effect filter's saved state under a user-chosen name, per filter class,
// in the current user's registry; states above 256 bytes live in a ".dxp" file whose path the
// registry value holds.
#include "ky_preset.h"
#include "ky_status.h"

#include <windows.h>
#include <objbase.h>
#include <shlobj.h>
#include <string.h>
#include <string>
#include <vector>

namespace {

const char *Base(LONG family) {
  return family ? "Software\\DXTransform\\Presets\\" : "Software\\DirectShow\\Presets\\";
}

const REGSAM kOpenAccess =
    KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY | KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY;

// The filter's persistence interface, released by the destructor.
struct Persist {
  IPersistStream *ps = nullptr;
  ~Persist() {
    if (ps) ps->Release();
  }
};

// Opens (or, for saving, creates) the filter class's preset key. 0 on success, 1 when the key
// cannot be opened - also when the filter cannot name its class, since there is then no key to
// open - or E_OUTOFMEMORY when the class id cannot be turned into text.
HRESULT OpenKey(IPersistStream *ps, LONG family, bool create, HKEY *key) {
  *key = nullptr;
  CLSID clsid;
  if (FAILED(ps->GetClassID(&clsid))) return 1;
  LPOLESTR wide = nullptr;
  HRESULT hr = StringFromCLSID(clsid, &wide);
  if (FAILED(hr)) return hr;
  char text[256] = {};
  int n = WideCharToMultiByte(CP_ACP, 0, wide, -1, text, 255, nullptr, nullptr);
  CoTaskMemFree(wide);
  if (n <= 0) return 1;
  std::string path = std::string(Base(family)) + text;
  LONG err = create ? RegCreateKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0,
                                      KEY_ALL_ACCESS, nullptr, key, nullptr)
                    : RegOpenKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, kOpenAccess, key);
  return err == ERROR_SUCCESS ? S_OK : 1;
}

// Asks the filter for IPersistStream and opens its preset key; result as OpenKey.
HRESULT Prepare(IUnknown *filter, LONG family, bool create, Persist &p, HKEY *key) {
  *key = nullptr;
  HRESULT hr = filter->QueryInterface(IID_IPersistStream, reinterpret_cast<void **>(&p.ps));
  if (FAILED(hr)) {
    p.ps = nullptr;
    return hr;
  }
  return OpenKey(p.ps, family, create, key);
}

// A REG_SZ value's text (terminated whether or not the registry stored a terminator).
bool ReadText(HKEY key, const char *name, std::string &out) {
  DWORD type = 0, size = 0;
  if (RegQueryValueExA(key, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS || type != REG_SZ)
    return false;
  std::vector<char> buf(size + 1, 0);
  if (RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE *>(buf.data()), &size) !=
      ERROR_SUCCESS)
    return false;
  out.assign(buf.data());
  return true;
}

// The folder large presets are written to: "DefLocation" expanded, else the family's folder in
// the program-files folder, else the relative "Presets\". Always ends with a separator.
std::string SaveFolder(LONG family) {
  char buf[MAX_PATH * 2];
  std::string folder;
  if (KyDSFilter_GetDefaultSavePath(buf, sizeof buf, family) == S_OK) {
    folder = buf;
  } else if (SUCCEEDED(SHGetFolderPathA(nullptr, CSIDL_PROGRAM_FILES, nullptr, SHGFP_TYPE_CURRENT, buf))) {
    folder = std::string(buf) + (family ? "\\DXTransform Presets\\" : "\\DirectShow Presets\\");
  } else {
    folder = "Presets\\";
  }
  if (!folder.empty() && folder.back() != '\\' && folder.back() != '/') folder += '\\';
  return folder;
}

// The stream's bytes from its start.
HRESULT StreamBytes(IStream *s, std::vector<BYTE> &out) {
  LARGE_INTEGER zero{};
  ULARGE_INTEGER end{};
  HRESULT hr = s->Seek(zero, STREAM_SEEK_END, &end);
  if (FAILED(hr)) return hr;
  if (end.QuadPart > 0x7fffffffull) return E_OUTOFMEMORY;
  hr = s->Seek(zero, STREAM_SEEK_SET, nullptr);
  if (FAILED(hr)) return hr;
  out.resize(static_cast<size_t>(end.QuadPart));
  ULONG got = 0;
  hr = out.empty() ? S_OK : s->Read(out.data(), static_cast<ULONG>(out.size()), &got);
  if (FAILED(hr)) return hr;
  return got == out.size() ? S_OK : STG_E_READFAULT;
}

// A memory stream over a movable global block (the stream owns it) of `length` bytes, rewound.
// The block may be one byte longer (an empty state still gets a block that can be locked).
HRESULT StreamOver(HGLOBAL block, DWORD length, IStream **out) {
  HRESULT hr = CreateStreamOnHGlobal(block, TRUE, out);
  if (FAILED(hr)) {
    *out = nullptr;
    GlobalFree(block);
    return hr;
  }
  ULARGE_INTEGER len;
  len.QuadPart = length;
  hr = (*out)->SetSize(len);
  LARGE_INTEGER zero{};
  return SUCCEEDED(hr) ? (*out)->Seek(zero, STREAM_SEEK_SET, nullptr) : hr;
}

HRESULT SaveToFile(HKEY key, const char *name, const std::vector<BYTE> &bytes, LONG family) {
  std::string folder = SaveFolder(family);
  std::string clean(name);
  KyValidateFileName(clean.data(), 1);
  std::string path = folder + clean + ".dxp";
  KyCreateDirectory(folder.c_str());
  // Open-always without truncation: an existing file of the same name is written over from
  // its start, and a shorter new state leaves the old tail behind it.
  HANDLE f = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
  if (f == INVALID_HANDLE_VALUE) return KYERR_FILE_CREATE;
  DWORD written = 0;
  BOOL ok = WriteFile(f, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  CloseHandle(f);
  if (!ok || written != bytes.size()) return KYERR_FILE_CREATE;
  LONG err = RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE *>(path.c_str()),
                            static_cast<DWORD>(path.size()));
  return err == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(err);
}

HRESULT LoadFromFile(const std::string &path, IStream **out) {
  HANDLE f = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
  if (f == INVALID_HANDLE_VALUE) return KYERR_FILE_OPEN;
  DWORD size = GetFileSize(f, nullptr);
  HGLOBAL block = size == INVALID_FILE_SIZE ? nullptr : GlobalAlloc(GMEM_MOVEABLE, size ? size : 1);
  if (!block) {
    CloseHandle(f);
    return size == INVALID_FILE_SIZE ? KYERR_FILE_OPEN : E_OUTOFMEMORY;
  }
  void *p = GlobalLock(block);
  DWORD got = 0;
  BOOL ok = p && ReadFile(f, p, size, &got, nullptr) && got == size;
  if (p) GlobalUnlock(block);
  CloseHandle(f);
  if (!ok) {
    GlobalFree(block);
    return KYERR_FILE_OPEN;
  }
  return StreamOver(block, size, out);
}

} // namespace

extern "C" HRESULT KYAPI KyDSFilter_SetDefaultSavePath(const char *folder, LONG family) {
  if (!folder) return E_POINTER;
  HKEY key;
  if (RegCreateKeyExA(HKEY_CURRENT_USER, Base(family), 0, nullptr, 0, KEY_SET_VALUE, nullptr,
                      &key, nullptr) != ERROR_SUCCESS)
    return 1;
  LONG err = RegSetValueExA(key, "DefLocation", 0, REG_EXPAND_SZ,
                            reinterpret_cast<const BYTE *>(folder),
                            static_cast<DWORD>(strlen(folder) + 1));
  RegCloseKey(key);
  return err == ERROR_SUCCESS ? S_OK : 1;
}

extern "C" HRESULT KYAPI KyDSFilter_GetDefaultSavePath(char *buffer, DWORD size, LONG family) {
  if (!buffer) return E_POINTER;
  HKEY key;
  if (RegOpenKeyExA(HKEY_CURRENT_USER, Base(family), 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS)
    return 1;
  DWORD type = 0, bytes = 0;
  LONG err = RegQueryValueExA(key, "DefLocation", nullptr, &type, nullptr, &bytes);
  std::vector<char> raw(bytes + 1, 0);
  if (err == ERROR_SUCCESS && type == REG_EXPAND_SZ)
    err = RegQueryValueExA(key, "DefLocation", nullptr, &type, reinterpret_cast<BYTE *>(raw.data()), &bytes);
  RegCloseKey(key);
  if (err != ERROR_SUCCESS || type != REG_EXPAND_SZ) return 1;
  DWORD need = ExpandEnvironmentStringsA(raw.data(), nullptr, 0);
  if (need == 0 || need > size) return 1;
  return ExpandEnvironmentStringsA(raw.data(), buffer, size) == need ? S_OK : 1;
}

extern "C" HRESULT KYAPI KyDSFilter_SavePreset(IUnknown *filter, const char *name, LONG family) {
  if (!filter || !name) return E_POINTER;
  try {
    Persist p;
    HKEY key;
    HRESULT hr = Prepare(filter, family, true, p, &key);
    if (hr != S_OK) return hr;
    IStream *s = nullptr;
    hr = CreateStreamOnHGlobal(nullptr, TRUE, &s);
    std::vector<BYTE> bytes;
    if (SUCCEEDED(hr)) hr = p.ps->Save(s, TRUE);
    if (SUCCEEDED(hr)) hr = StreamBytes(s, bytes);
    if (SUCCEEDED(hr)) {
      if (bytes.size() <= KYPRESET_INLINE_MAX) {
        LONG err = RegSetValueExA(key, name, 0, REG_BINARY, bytes.data(),
                                  static_cast<DWORD>(bytes.size()));
        hr = err == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(err);
      } else {
        hr = SaveToFile(key, name, bytes, family);
      }
    }
    if (s) s->Release();
    RegCloseKey(key);
    return hr;
  } catch (...) {
    return E_FAIL;
  }
}

extern "C" HRESULT KYAPI KyDSFilter_LoadPreset(IUnknown *filter, const char *name, LONG family) {
  if (!filter || !name) return E_POINTER;
  try {
    Persist p;
    HKEY key;
    HRESULT hr = Prepare(filter, family, false, p, &key);
    if (hr != S_OK) return hr;
    DWORD type = 0, size = 0;
    LONG err = RegQueryValueExA(key, name, nullptr, &type, nullptr, &size);
    std::vector<BYTE> data(size + 1, 0);
    if (err == ERROR_SUCCESS) err = RegQueryValueExA(key, name, nullptr, &type, data.data(), &size);
    RegCloseKey(key);
    if (err != ERROR_SUCCESS) return HRESULT_FROM_WIN32(err);
    IStream *s = nullptr;
    if (type == REG_SZ) {
      hr = LoadFromFile(std::string(reinterpret_cast<char *>(data.data())), &s);
    } else {
      HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, size ? size : 1);
      void *q = block ? GlobalLock(block) : nullptr;
      if (!q) {
        if (block) GlobalFree(block);
        return E_OUTOFMEMORY;
      }
      CopyMemory(q, data.data(), size);
      GlobalUnlock(block);
      hr = StreamOver(block, size, &s);
    }
    if (SUCCEEDED(hr)) hr = p.ps->Load(s);
    if (s) s->Release();
    return hr;
  } catch (...) {
    return E_FAIL;
  }
}

extern "C" HRESULT KYAPI KyDSFilter_GetPresetCount(IUnknown *filter, LONG *count, LONG family) {
  if (!filter || !count) return E_POINTER;
  *count = 0;
  Persist p;
  HKEY key;
  HRESULT hr = Prepare(filter, family, false, p, &key);
  if (hr != S_OK) return hr;
  DWORD values = 0;
  LONG err = RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values,
                              nullptr, nullptr, nullptr, nullptr);
  RegCloseKey(key);
  if (err != ERROR_SUCCESS) return HRESULT_FROM_WIN32(err);
  *count = static_cast<LONG>(values);
  return S_OK;
}

extern "C" HRESULT KYAPI KyDSFilter_GetPresetName(IUnknown *filter, LONG index, char *name,
                                                  DWORD *size, LONG family) {
  if (!filter || !name || !size) return E_POINTER;
  Persist p;
  HKEY key;
  HRESULT hr = Prepare(filter, family, false, p, &key);
  if (hr != S_OK) return hr;
  LONG err = RegEnumValueA(key, static_cast<DWORD>(index), name, size, nullptr, nullptr, nullptr,
                           nullptr);
  RegCloseKey(key);
  return err == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(err);
}

extern "C" HRESULT KYAPI KyDSFilter_DeletePreset(IUnknown *filter, const char *name, LONG family) {
  if (!filter || !name) return E_POINTER;
  Persist p;
  HKEY key;
  HRESULT hr = Prepare(filter, family, false, p, &key);
  if (hr != S_OK) return hr;
  std::string path;
  if (ReadText(key, name, path)) DeleteFileA(path.c_str());
  RegDeleteValueA(key, name);
  RegCloseKey(key);
  return S_OK;
}
