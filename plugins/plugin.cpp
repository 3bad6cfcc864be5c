// Plug-in discovery: building the list (from the cache, by the scan process, or by a rebuild
// in this process), the scan process's entry point, and the user's ignore and rename marks.
#include "ky_internal.h"
#include "ky_text.h"
#include "plugin_p.h"

#include <objbase.h>
#include <stdio.h>

namespace ky::plugin {

namespace {

// How long a caller waits for the scan process; tests shorten it through a seam.
DWORD g_scanTimeout = kScanTimeoutMs;

// What the last scan process was started with (for diagnostics and the tests).
char g_lastScanCommand[2 * MAX_PATH + 96];
DWORD g_lastScanProcessId;

// The resource module of the running rebuild. List building is not guarded against
// concurrent use (callers serialise it), so one process-wide slot is enough.
HMODULE g_resourceModule;

// Makes the caller's resource module the current resource source for the duration of a
// rebuild, and restores the previous one afterwards. A handle that names no module loaded in
// this process - the scan process receives the caller's handle as a number and it is only
// meaningful when the module sits at the same address there - is not installed.
class ResourceScope {
public:
  explicit ResourceScope(HINSTANCE module) : previous_(g_resourceModule) {
    char path[MAX_PATH];
    if (module && GetModuleFileNameA(module, path, MAX_PATH) != 0) g_resourceModule = module;
  }
  ~ResourceScope() { g_resourceModule = previous_; }
  ResourceScope(const ResourceScope &) = delete;
  ResourceScope &operator=(const ResourceScope &) = delete;

private:
  HMODULE previous_;
};

// COM for the mapper enumeration. A thread that already runs COM in another apartment model
// keeps it; the enumeration then works in that apartment.
class ComScope {
public:
  ComScope() : ok_(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {}
  ~ComScope() {
    if (ok_) CoUninitialize();
  }
  ComScope(const ComScope &) = delete;
  ComScope &operator=(const ComScope &) = delete;

private:
  bool ok_;
};

struct CacheState {
  KYPLUGINNODE *list = nullptr;
  bool valid = false;
};

// Step 1 of a build: open the cache unless told not to, test it and read its entries (the
// entries of an invalid cache are read too: they carry the user's marks into a rebuild).
void ReadCacheState(CacheState *s, DWORD flags) {
  FreeNodes(s->list);
  s->list = nullptr;
  s->valid = false;
  if (flags & KYPLUGIN_LIST_NOCACHE) return;
  HKEY cache;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kCacheKey, 0, KEY_READ, &cache) != ERROR_SUCCESS) return;
  s->valid = CacheIsValid(cache, flags);
  s->list = ReadCache(cache);
  RegCloseKey(cache);
}

// Starts the scan process and waits for its event or its end, at most g_scanTimeout ms.
// A process that does not finish in time is abandoned, not killed.
void RunScanProcess(HINSTANCE resourceModule) {
  HANDLE event = CreateEventA(nullptr, TRUE, FALSE, kGrovelEventName);
  // An event left signalled by an earlier scan that another process still holds would end
  // the wait at once; every process that waited on it has been released already.
  if (event && GetLastError() == ERROR_ALREADY_EXISTS) ResetEvent(event);

  char path[MAX_PATH], shortPath[MAX_PATH];
  if (!GetModuleFileNameA(g.module, path, MAX_PATH)) path[0] = 0;
  const DWORD n = GetShortPathNameA(path, shortPath, MAX_PATH);
  const char *dll = n > 0 && n < MAX_PATH ? shortPath : path;
  snprintf(g_lastScanCommand, sizeof g_lastScanCommand, "RunDLL32.exe %s,_KyPlugIn_Grovel@16 %d %s",
           dll, static_cast<int>(reinterpret_cast<INT_PTR>(resourceModule)), kGrovelEventName);

  STARTUPINFOA si;
  ZeroMemory(&si, sizeof si);
  si.cb = sizeof si;
  PROCESS_INFORMATION pi;
  ZeroMemory(&pi, sizeof pi);
  g_lastScanProcessId = 0;
  if (CreateProcessA(nullptr, g_lastScanCommand, nullptr, nullptr, FALSE, NORMAL_PRIORITY_CLASS,
                     nullptr, nullptr, &si, &pi)) {
    g_lastScanProcessId = pi.dwProcessId;
    if (event) {
      HANDLE both[2] = {event, pi.hProcess};
      WaitForMultipleObjects(2, both, FALSE, g_scanTimeout);
    } else {
      WaitForSingleObject(pi.hProcess, g_scanTimeout);
    }
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
  }
  if (event) CloseHandle(event);
}

// Unlinks and frees the ignored nodes; returns the new head and counts the rest.
KYPLUGINNODE *DropIgnored(KYPLUGINNODE *head, DWORD *count) {
  KYPLUGINNODE **link = &head;
  DWORD kept = 0;
  while (*link) {
    KYPLUGINNODE *n = *link;
    if (n->flags & KYPLUGIN_F_IGNORED) {
      *link = n->next;
      free(n);
    } else {
      ++kept;
      link = &n->next;
    }
  }
  *count = kept;
  return head;
}

} // namespace

HMODULE CurrentResourceModule() { return g_resourceModule; }

// The whole build. With KYPLUGIN_LIST_NOCACHE the list is always rebuilt in this process:
// a cache that is never read cannot be what a scan process hands back.
KYPLUGINNODE *BuildList(DWORD *outCount, DWORD flags, HINSTANCE resourceModule) {
  CacheState cache;
  ReadCacheState(&cache, flags);

  const bool mapper = (flags & KYPLUGIN_LIST_MAPPER) != 0;
  const bool force = (flags & KYPLUGIN_LIST_REBUILD) != 0;
  const bool noCache = (flags & KYPLUGIN_LIST_NOCACHE) != 0;
  KYPLUGINNODE *list = nullptr;
  bool rebuilt = false;
  if (mapper && !(flags & KYPLUGIN_LIST_INPROCESS) && !noCache && (!cache.valid || force)) {
    RunScanProcess(resourceModule);
    ReadCacheState(&cache, flags);
    list = cache.list;
  } else if (noCache || !cache.valid || force) {
    ResourceScope resources(resourceModule);
    try {
      if (mapper) {
        ComScope com;
        EnumerateMapper(&list, cache.list);
      }
      EnumerateLegacy(&list, cache.list);
    } catch (...) {
      // Out of memory inside an enumeration: keep what was gathered.
    }
    FreeNodes(cache.list);
    rebuilt = true;
  } else {
    list = cache.list;
  }
  cache.list = nullptr;

  try {
    list = SortAndNumber(list);
  } catch (...) {
    // The list stays in gathering order when no memory is left to sort it.
  }
  if (rebuilt || !cache.valid) WriteCache(list, flags);

  DWORD count = 0;
  list = DropIgnored(list, &count);
  if (outCount) *outCount = count;
  return list;
}

// Ignore and rename: change one node of a freshly built list and rewrite the cache from it.
template <class F>
HRESULT UpdateEntry(DWORD flags, const GUID *clsid, F change) {
  if (!clsid) return E_POINTER;
  KYPLUGINNODE *list = BuildList(nullptr, flags, nullptr);
  if (!list) return E_FAIL;
  HRESULT hr = E_INVALIDARG;
  if (KYPLUGINNODE *n = Find(list, *clsid)) {
    change(n);
    hr = WriteCache(list, flags) ? S_OK : E_FAIL;
  }
  FreeNodes(list);
  return hr;
}

} // namespace ky::plugin

using namespace ky::plugin;

extern "C" KYPLUGINNODE *WINAPI KyPlugIn_CreateList(DWORD *outCount, DWORD listFlags,
                                                    HINSTANCE resourceModule) {
  if (outCount) *outCount = 0;
  return ky::Guard<KYPLUGINNODE *>(nullptr, [&] { return BuildList(outCount, listFlags, resourceModule); });
}

extern "C" void WINAPI KyPlugIn_FreeList(KYPLUGINNODE *head) { FreeNodes(head); }

extern "C" KYPLUGINNODE *WINAPI KyPlugIn_FindNode(KYPLUGINNODE *head, const GUID *clsid) {
  return clsid ? Find(head, *clsid) : nullptr;
}

extern "C" HRESULT WINAPI KyPlugIn_Ignore(DWORD listFlags, const GUID *clsid, DWORD ignore) {
  return ky::GuardHr([&] {
    return UpdateEntry(listFlags, clsid, [&](KYPLUGINNODE *n) {
      n->flags = (n->flags & ~KYPLUGIN_F_IGNORED) | ((ignore & 1) ? KYPLUGIN_F_IGNORED : 0);
    });
  });
}

extern "C" HRESULT WINAPI KyPlugIn_Rename(DWORD listFlags, const GUID *clsid, const char *name) {
  if (!name) return E_POINTER;
  return ky::GuardHr([&] {
    return UpdateEntry(listFlags, clsid, [&](KYPLUGINNODE *n) { SetName(n, name); });
  });
}

extern "C" LONG WINAPI KyPlugIn_Grovel(HWND, HINSTANCE, LPSTR commandLine, int) {
  ky::Guard<LONG>(0, [&] {
    const HRESULT com = CoInitialize(nullptr);
    HINSTANCE module = nullptr;
    HANDLE event = nullptr;
    if (commandLine && *commandLine) {
      const char *rest = commandLine;
      module = reinterpret_cast<HINSTANCE>(static_cast<INT_PTR>(KyTextToLongToken(commandLine, &rest)));
      while (*rest == ' ' || *rest == '\t') ++rest;
      char name[MAX_PATH];
      lstrcpynA(name, rest, MAX_PATH);
      for (int len = lstrlenA(name); len > 0 && (name[len - 1] == ' ' || name[len - 1] == '\t' ||
                                                 name[len - 1] == '\r' || name[len - 1] == '\n');)
        name[--len] = 0;
      if (name[0]) event = CreateEventA(nullptr, TRUE, FALSE, name);
    }
    FreeNodes(BuildList(nullptr, KYPLUGIN_LIST_MAPPER | KYPLUGIN_LIST_REBUILD | KYPLUGIN_LIST_INPROCESS,
                        module));
    if (event) {
      SetEvent(event);
      CloseHandle(event);
    }
    if (SUCCEEDED(com)) CoUninitialize();
    return 0L;
  });
  return 0;
}

// ---- seams for the tests ----

// Sets how long callers wait for the scan process (0: the built-in four minutes); returns
// the previous wait.
extern "C" DWORD WINAPI KyInternal_PlugInSetScanTimeout(DWORD milliseconds) {
  const DWORD previous = g_scanTimeout;
  g_scanTimeout = milliseconds ? milliseconds : kScanTimeoutMs;
  return previous;
}

// The command line and process id of the last scan process (id 0: none started).
extern "C" DWORD WINAPI KyInternal_PlugInLastScan(char *commandLine, DWORD size) {
  if (commandLine && size) lstrcpynA(commandLine, g_lastScanCommand, static_cast<int>(size));
  return g_lastScanProcessId;
}

// The resource module installed for the rebuild that is running (0 outside a rebuild).
extern "C" HMODULE WINAPI KyInternal_PlugInResourceModule() { return g_resourceModule; }
