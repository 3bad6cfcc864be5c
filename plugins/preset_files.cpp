// File-name cleaning and folder creation used by the presets (and available to clients).
#include "ky_preset.h"

#include <windows.h>
#include <ctype.h>
#include <string.h>
#include <string>

namespace {

bool Invalid(unsigned char c) {
  return c < 32 || strchr("\\/:*?\"<>|", c) != nullptr;
}

// CON, PRN, AUX, NUL, COM1-9 and LPT1-9 name devices whatever extension follows them.
bool ReservedDevice(const char *name) {
  size_t stem = strcspn(name, ".");
  char up[5] = {};
  if (stem != 3 && stem != 4) return false;
  for (size_t i = 0; i < stem; ++i) up[i] = static_cast<char>(toupper(static_cast<unsigned char>(name[i])));
  if (stem == 3) return !strcmp(up, "CON") || !strcmp(up, "PRN") || !strcmp(up, "AUX") || !strcmp(up, "NUL");
  return (!strncmp(up, "COM", 3) || !strncmp(up, "LPT", 3)) && up[3] >= '1' && up[3] <= '9';
}

} // namespace

extern "C" LONG KYAPI KyValidateFileName(char *name, LONG mode) {
  if (!name) return -1;
  LONG changed = 0;
  size_t n = strlen(name);
  for (size_t i = 0; i < n; ++i) {
    if (Invalid(static_cast<unsigned char>(name[i]))) {
      ++changed;
      if (mode == 1) name[i] = '_';
    }
  }
  // Windows drops trailing dots and blanks from a file name, which would change the name.
  for (size_t i = n; i > 0 && (name[i - 1] == '.' || name[i - 1] == ' '); --i) {
    ++changed;
    if (mode == 1) name[i - 1] = '_';
  }
  if (ReservedDevice(name)) {
    ++changed;
    if (mode == 1) name[0] = '_';
  }
  return changed;
}

extern "C" HRESULT KYAPI KyCreateDirectory(const char *path) {
  if (!path) return E_POINTER;
  std::string p(path);
  while (p.size() > 3 && (p.back() == '\\' || p.back() == '/')) p.pop_back();
  if (p.empty()) return E_INVALIDARG;
  DWORD attr = GetFileAttributesA(p.c_str());
  if (attr != INVALID_FILE_ATTRIBUTES)
    return (attr & FILE_ATTRIBUTE_DIRECTORY) ? S_OK : HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS);
  size_t sep = p.find_last_of("\\/");
  if (sep != std::string::npos && sep > 0 && p[sep - 1] != ':') {
    HRESULT hr = KyCreateDirectory(p.substr(0, sep).c_str());
    if (FAILED(hr)) return hr;
  }
  if (CreateDirectoryA(p.c_str(), nullptr)) return S_OK;
  DWORD err = GetLastError();
  if (err == ERROR_ALREADY_EXISTS) return S_OK;
  return HRESULT_FROM_WIN32(err);
}
