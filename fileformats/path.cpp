// Path utilities: the file-name part and the extension of a path, used by the side-file
// naming of the metadata family.
#include <string.h>

#include "ky_path.h"

extern "C" {

char *KYAPI KyGetFileNamePtr(const char *path) {
  if (!path) return nullptr;
  const char *name = path;
  for (const char *p = path; *p; ++p)
    if (*p == '\\' || *p == ':') name = p + 1;
  return const_cast<char *>(name);
}

char *KYAPI KyGetFileNameExtensionPtr(const char *path) {
  if (!path) return nullptr;
  const char *dot = strrchr(path, '.');
  if (!dot) return nullptr;
  // "my file.old name" has no extension: a space after the dot means the dot is part of the
  // name. Only the space counts: a dot in a folder name (C:\v1.2\take) still starts the
  // extension.
  if (strchr(dot + 1, ' ')) return nullptr;
  return const_cast<char *>(dot);
}

}  // extern "C"
