// kytool plugins: the installed effect plug-ins as the editor sees them, and the user's
// ignore and rename marks.
#include "kytool.h"

#include <stdio.h>
#include <string.h>
#include <string>
#include <windows.h>

#include "ky_plugin.h"

namespace {

const DWORD kEditorFlags = KYPLUGIN_LIST_MAPPER; // the editor always includes mapper filters

bool ParseClsid(const std::string &text, GUID *g) {
  unsigned long d1;
  unsigned d2, d3, b[8];
  char tail = 0;
  if (sscanf(text.c_str(), "{%8lx-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x}%c", &d1, &d2, &d3, &b[0], &b[1],
             &b[2], &b[3], &b[4], &b[5], &b[6], &b[7], &tail) != 11 ||
      text.size() != 38)
    return false;
  g->Data1 = d1;
  g->Data2 = static_cast<unsigned short>(d2);
  g->Data3 = static_cast<unsigned short>(d3);
  for (int i = 0; i < 8; ++i) g->Data4[i] = static_cast<unsigned char>(b[i]);
  return true;
}

std::string ClsidText(const GUID &g) {
  char buf[40];
  snprintf(buf, sizeof buf, "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
           static_cast<unsigned long>(g.Data1), g.Data2, g.Data3, g.Data4[0], g.Data4[1], g.Data4[2],
           g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
  return buf;
}

int Report(const char *what, const std::string &clsid, HRESULT hr) {
  if (SUCCEEDED(hr)) {
    printf("%s %s: done\n", what, clsid.c_str());
    return 0;
  }
  const char *why = hr == E_INVALIDARG ? " (not in the list; ignored plug-ins are never listed)"
                    : hr == E_FAIL     ? " (no plug-in list, or the cache could not be written)"
                                       : "";
  fprintf(stderr, "kytool: %s %s failed: 0x%08lX%s\n", what, clsid.c_str(), (unsigned long)hr, why);
  return 1;
}

// The entries the cache keeps but the editor never sees: ignored by the user or by the
// built-in deny list of system filters.
void ShowCacheIgnored() {
  HKEY cache;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Orvanel\\DXCache", 0, KEY_READ, &cache) != ERROR_SUCCESS) {
    printf("no plug-in cache\n");
    return;
  }
  DWORD entries = 0, ignored = 0;
  char key[64];
  for (DWORD i = 0;; ++i) {
    DWORD len = sizeof key;
    if (RegEnumKeyExA(cache, i, key, &len, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
    ++entries;
    char name[64] = "";
    DWORD flags = 3, size = sizeof flags;
    RegGetValueA(cache, key, "Flags", RRF_RT_REG_DWORD, nullptr, &flags, &size);
    size = sizeof name;
    RegGetValueA(cache, key, nullptr, RRF_RT_REG_SZ, nullptr, name, &size);
    if (flags & KYPLUGIN_F_IGNORED) {
      if (!ignored++) printf("kept in the cache but ignored:\n");
      printf("       %-40s %s  flags 0x%08lX\n", name, key, (unsigned long)flags);
    }
  }
  RegCloseKey(cache);
  printf("cache: %lu entr%s, %lu ignored\n", (unsigned long)entries, entries == 1 ? "y" : "ies",
         (unsigned long)ignored);
}

int List(DWORD flags) {
  DWORD count = 0;
  KYPLUGINNODE *head = KyPlugIn_CreateList(&count, flags, nullptr);
  printf("%lu effect plug-in(s) (list flags %lu)\n", (unsigned long)count, (unsigned long)flags);
  for (KYPLUGINNODE *n = head; n; n = n->next)
    printf("  %3lu  %-40s %s  flags 0x%08lX%s\n", (unsigned long)n->index, n->name,
           ClsidText(n->clsid).c_str(), (unsigned long)n->flags,
           (n->flags & KYPLUGIN_F_EXTENSION) ? "  [extension interface]" : "");
  KyPlugIn_FreeList(head);
  ShowCacheIgnored();
  return 0;
}

int Plugins(const kytool::Args &in) {
  kytool::Args args = in;
  DWORD flags = kEditorFlags;
  if (kytool::TakeFlag(args, "--rescan")) flags |= KYPLUGIN_LIST_REBUILD;
  if (kytool::TakeFlag(args, "--no-cache")) flags |= KYPLUGIN_LIST_NOCACHE;
  if (kytool::TakeFlag(args, "--in-process")) flags |= KYPLUGIN_LIST_INPROCESS;
  const std::string ignore = kytool::TakeOption(args, "--ignore", "");
  const std::string unignore = kytool::TakeOption(args, "--unignore", "");
  std::string renameId, renameTo;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--rename" && i + 2 < args.size()) {
      renameId = args[i + 1];
      renameTo = args[i + 2];
      args.erase(args.begin() + i, args.begin() + i + 3);
      break;
    }
  }
  if (!args.empty()) {
    fprintf(stderr, "usage: kytool plugins [--rescan] [--no-cache] [--in-process] [--ignore CLSID] "
                    "[--unignore CLSID] [--rename CLSID NAME]\n");
    return 2;
  }
  int rc = 0;
  GUID g;
  if (!ignore.empty()) {
    if (!ParseClsid(ignore, &g)) return fprintf(stderr, "kytool: bad CLSID %s\n", ignore.c_str()), 2;
    rc |= Report("ignore", ignore, KyPlugIn_Ignore(flags, &g, 1));
  }
  if (!unignore.empty()) {
    if (!ParseClsid(unignore, &g)) return fprintf(stderr, "kytool: bad CLSID %s\n", unignore.c_str()), 2;
    rc |= Report("unignore", unignore, KyPlugIn_Ignore(flags, &g, 0));
  }
  if (!renameId.empty()) {
    if (!ParseClsid(renameId, &g)) return fprintf(stderr, "kytool: bad CLSID %s\n", renameId.c_str()), 2;
    rc |= Report("rename", renameId, KyPlugIn_Rename(flags, &g, renameTo.c_str()));
  }
  // A change has already rebuilt the list when asked to; listing need not rebuild it again.
  const bool changed = !ignore.empty() || !unignore.empty() || !renameId.empty();
  List(changed ? flags & ~(DWORD)KYPLUGIN_LIST_REBUILD : flags);
  return rc;
}

int Demo(const kytool::Args &) { return List(kEditorFlags); }

} // namespace

KYTOOL_COMMAND("plugins", "[--rescan] [--no-cache] [--in-process] [--ignore CLSID] [--unignore CLSID] [--rename CLSID NAME]",
               "list the installed effect plug-ins as the editor sees them (registry cache, scan process)",
               Plugins, Demo, 60);
