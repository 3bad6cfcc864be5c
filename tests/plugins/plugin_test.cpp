// Plug-in discovery against real registrations in the test prefix's registry: legacy
// "Filter" entries with their pins, filters of the DirectShow category with the test filter
// DLLs behind them, the registry cache, and the scan process started through RunDLL32.
#include "ky_testutil.h"
#include "ky_plugin.h"
#include "ky_text.h"

#include <limits.h>
#include <objbase.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

const char *kCache = "Software\\Orvanel\\DXCache";
const char *kInstance = "CLSID\\{083863F1-70DE-11d0-BD40-00A0C911CE86}\\Instance";
const char *kRecord = "Software\\tellarok-tests\\filters";
const char *const kAm1[] = {"CheckSumAM1", "CheckSumAM1Track", "CheckSumAM1_2.0"};
const GUID kAudio = {0x73647561, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

GUID TestId(BYTE last) { return {0x6B1D7C10, 0x5A2E, 0x4F31, {0x9C, 0x3A, 0, 0, 0, 0, 0, last}}; }
const GUID kExt = TestId(0xE1), kPlain = TestId(0xE2), kCrash = TestId(0xE3), kHang = TestId(0xE4);
const GUID kReverb = TestId(0xA1), kRenderer = TestId(0xA2), kSpaced = TestId(0xA3), kDelay = TestId(0xA4),
           kBlank = TestId(0xA5);
const GUID kDenied = {0xDEDDFB73, 0x8E98, 0x11D0, {0x85, 0x42, 0x00, 0xA0, 0x24, 0xD1, 0x81, 0xB8}};
const GUID kAllTest[] = {kExt, kPlain, kCrash, kHang, kReverb, kRenderer, kSpaced, kDelay, kBlank, kDenied};

std::string Id(const GUID &g) {
  wchar_t w[40];
  StringFromGUID2(g, w, 40);
  char a[40];
  WideCharToMultiByte(CP_ACP, 0, w, -1, a, sizeof a, nullptr, nullptr);
  return a;
}

void SetRaw(HKEY root, const std::string &path, const char *name, DWORD type, const void *data, DWORD size) {
  HKEY k;
  ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExA(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr));
  RegSetValueExA(k, name, 0, type, static_cast<const BYTE *>(data), size);
  RegCloseKey(k);
}
void SetStr(HKEY root, const std::string &path, const char *name, const std::string &v) {
  SetRaw(root, path, name, REG_SZ, v.c_str(), v.size() + 1);
}
void SetDword(HKEY root, const std::string &path, const char *name, DWORD v) {
  SetRaw(root, path, name, REG_DWORD, &v, sizeof v);
}

// A value as raw bytes; empty when absent.
std::string Raw(HKEY root, const std::string &path, const char *name, DWORD *type = nullptr) {
  char buf[512];
  DWORD size = sizeof buf, t = 0;
  if (RegGetValueA(root, path.c_str(), name, RRF_RT_ANY, &t, buf, &size) != ERROR_SUCCESS) return {};
  if (type) *type = t;
  return std::string(buf, size);
}

DWORD Dword(HKEY root, const std::string &path, const char *name, DWORD absent) {
  const std::string v = Raw(root, path, name);
  return v.size() == 4 ? *reinterpret_cast<const DWORD *>(v.data()) : absent;
}
std::string CacheKey(const GUID &g) { return std::string(kCache) + "\\" + Id(g); }
DWORD CachedFlags(const GUID &g) { return Dword(HKEY_LOCAL_MACHINE, CacheKey(g), "Flags", 0xFFFFFFFF); }
void SetCachedName(const GUID &g, const char *name) { SetStr(HKEY_LOCAL_MACHINE, CacheKey(g), nullptr, name); }
DWORD Recorded(const char *name) { return Dword(HKEY_CURRENT_USER, kRecord, name, 0); }

// A legacy registration: "Filter\{clsid}" and the pins under "CLSID\{clsid}\Pins".
void RegisterLegacy(const GUID &g, const char *name, bool audioIn, bool audioOut) {
  SetStr(HKEY_CLASSES_ROOT, "Filter\\" + Id(g), nullptr, name);
  const std::string pins = "CLSID\\" + Id(g) + "\\Pins\\";
  const std::string types = "\\Types\\" + Id(kAudio) + "\\" + Id(GUID_NULL);
  SetDword(HKEY_CLASSES_ROOT, pins + "Input", "Direction", 0);
  SetDword(HKEY_CLASSES_ROOT, pins + "Output", "Direction", 1);
  if (audioIn) SetStr(HKEY_CLASSES_ROOT, pins + "Input" + types, nullptr, "");
  if (audioOut) SetStr(HKEY_CLASSES_ROOT, pins + "Output" + types, nullptr, "");
}

// A COM server and its entry in the DirectShow filter category, with the filter data of one
// audio input pin and one audio output pin.
void RegisterFilter(const GUID &g, const char *dll, const char *name) {
  const char *bin = getenv("TELLAROK_BIN");
  SetStr(HKEY_CLASSES_ROOT, "CLSID\\" + Id(g), nullptr, name);
  SetStr(HKEY_CLASSES_ROOT, "CLSID\\" + Id(g) + "\\InprocServer32", nullptr,
         std::string(bin ? bin : ".") + "/" + dll);
  SetStr(HKEY_CLASSES_ROOT, "CLSID\\" + Id(g) + "\\InprocServer32", "ThreadingModel", "Both");
  const std::string inst = std::string(kInstance) + "\\" + Id(g);
  SetStr(HKEY_CLASSES_ROOT, inst, "FriendlyName", name);
  SetStr(HKEY_CLASSES_ROOT, inst, "CLSID", Id(g));
  auto sig = [](const char *s) { return DWORD(BYTE(s[0]) | BYTE(s[1]) << 8 | BYTE(s[2]) << 16 | BYTE(s[3]) << 24); };
  DWORD data[] = {2, 0x600000, 2, 0,                                // version, merit, pins, unused
                  sig("0pi3"), 0, 0, 1, 0, 0, sig("0ty3"), 0, 96, 112,  // input pin, one media type
                  sig("1pi3"), 8, 0, 1, 0, 0, sig("0ty3"), 0, 96, 112}; // output pin (flag 8)
  std::string blob(reinterpret_cast<char *>(data), sizeof data);
  blob.append(reinterpret_cast<const char *>(&kAudio), 16).append(16, '\0');
  SetRaw(HKEY_CLASSES_ROOT, inst, "FilterData", REG_BINARY, blob.data(), blob.size());
}

void Unregister(const GUID &g) {
  RegDeleteTreeA(HKEY_CLASSES_ROOT, ("Filter\\" + Id(g)).c_str());
  RegDeleteTreeA(HKEY_CLASSES_ROOT, ("CLSID\\" + Id(g)).c_str());
  RegDeleteTreeA(HKEY_CLASSES_ROOT, (std::string(kInstance) + "\\" + Id(g)).c_str());
}

// Reference fingerprint: the CLSIDs under a key summed as four little-endian words.
std::string Fingerprint(const char *path) {
  DWORD sum[4] = {0, 0, 0, 0};
  HKEY k;
  if (RegOpenKeyExA(HKEY_CLASSES_ROOT, path, 0, KEY_READ, &k) != ERROR_SUCCESS) return std::string(16, '\0');
  wchar_t w[256];
  for (DWORD i = 0, len = 256; RegEnumKeyExW(k, i, w, &len, nullptr, nullptr, nullptr, nullptr) == 0; ++i, len = 256) {
    GUID g;
    if (w[0] != L'{' || FAILED(CLSIDFromString(w, &g))) continue;
    for (int j = 0; j < 4; ++j) sum[j] += reinterpret_cast<const DWORD *>(&g)[j];
  }
  RegCloseKey(k);
  return std::string(reinterpret_cast<char *>(sum), 16);
}

// The list as CLSID text -> node copy, plus the names in list order.
struct Listing {
  DWORD count = 0;
  std::map<std::string, KYPLUGINNODE> nodes;
  std::vector<std::string> names;
  bool Has(const GUID &g) const { return nodes.count(Id(g)) != 0; }
  const KYPLUGINNODE &At(const GUID &g) const { return nodes.at(Id(g)); }
};

Listing List(DWORD flags, HINSTANCE module = nullptr) {
  Listing l;
  l.count = 12345;
  KYPLUGINNODE *head = KyPlugIn_CreateList(&l.count, flags, module);
  DWORD index = 0, previous = 0;
  for (KYPLUGINNODE *n = head; n; n = n->next, ++index) {
    // Numbered in the sorted list before the ignored nodes leave it: increasing, maybe gaps.
    EXPECT_TRUE(index == 0 || previous < n->index) << n->index;
    previous = n->index;
    EXPECT_EQ(4u, n->type);
    EXPECT_EQ(3u, n->flags & 3u);
    EXPECT_EQ(0u, n->flags & KYPLUGIN_F_IGNORED);
    EXPECT_EQ(n, KyPlugIn_FindNode(head, &n->clsid));
    l.nodes[Id(n->clsid)] = *n;
    l.names.push_back(n->name);
  }
  EXPECT_EQ(index, l.count);
  KyPlugIn_FreeList(head);
  return l;
}

class PlugIn : public ::testing::Test {
protected:
  void SetUp() override { Clean(); }
  void TearDown() override { Clean(); }
  static void Clean() {
    RegDeleteTreeA(HKEY_LOCAL_MACHINE, kCache);
    RegDeleteTreeA(HKEY_CURRENT_USER, kRecord);
    for (const GUID &g : kAllTest) Unregister(g);
  }
  static DWORD LastScanPid(std::string *cmd = nullptr) {
    auto f = kytest::Export<DWORD(WINAPI *)(char *, DWORD)>("KyInternal_PlugInLastScan");
    char buf[600] = "";
    const DWORD pid = f ? f(buf, sizeof buf) : 0;
    if (cmd) *cmd = buf;
    return pid;
  }
};

} // namespace

TEST(TextToLongToken, Table) {
  const struct { const char *text; LONG value; int end; } rows[] = {
      {"12", 12, 2},           {"  -34abc", -34, 5},         {"+7", 7, 2},
      {"\t 0", 0, 3},          {"abc", 0, 0},                {"", 0, 0},
      {"-", 0, 0},             {"2147483647", LONG_MAX, 10}, {"2147483648", LONG_MAX, 10},
      {"-2147483648", LONG_MIN, 11}, {"-99999999999", LONG_MIN, 12}, {"12 Orvanel_Grovel_Event", 12, 2},
  };
  for (const auto &r : rows) {
    const char *end = nullptr;
    EXPECT_EQ(r.value, KyTextToLongToken(r.text, &end)) << r.text;
    EXPECT_EQ(r.end, end - r.text) << r.text;
  }
  EXPECT_EQ(0, KyTextToLongToken(nullptr, nullptr));
}

TEST_F(PlugIn, RebuildTakesAudioEffectsAndWritesTheCache) {
  RegisterLegacy(kReverb, "Legacy Reverb", true, true);
  RegisterLegacy(kRenderer, "Renderer", true, false);
  RegisterLegacy(kSpaced, "  Spaced \t  Name  ", true, true);
  RegisterLegacy(kBlank, "   ", true, true);
  RegisterLegacy(kDenied, "  Denied  ", true, true);
  const Listing l = List(0);
  ASSERT_EQ(3u, l.count);
  EXPECT_EQ((std::vector<std::string>{Id(kBlank), "Legacy Reverb", "Spaced Name"}), l.names);
  // "  Denied  " sorted first and left the list after numbering.
  EXPECT_EQ(1u, l.At(kBlank).index);
  EXPECT_EQ(3u, l.At(kSpaced).index);

  // Every entry is cached, the denied one marked ignored and under its registry name.
  EXPECT_EQ(3u, CachedFlags(kReverb));
  EXPECT_EQ(0x80000003u, CachedFlags(kDenied));
  EXPECT_EQ(std::string("  Denied  ", 11), Raw(HKEY_LOCAL_MACHINE, CacheKey(kDenied), nullptr));
  EXPECT_EQ(0xFFFFFFFFu, CachedFlags(kRenderer));
  DWORD type = 0;
  EXPECT_EQ(std::string("\2\0\0\0", 4), Raw(HKEY_LOCAL_MACHINE, kCache, "Version", &type));
  EXPECT_EQ(REG_BINARY, type);
  const std::string am1 = Fingerprint("Filter");
  EXPECT_NE(std::string(16, '\0'), am1);
  for (const char *v : kAm1)
    EXPECT_EQ(am1, Raw(HKEY_LOCAL_MACHINE, kCache, v)) << v;
  EXPECT_EQ("", Raw(HKEY_LOCAL_MACHINE, kCache, "CheckSumDX5")); // no mapper: no category sums
}

TEST_F(PlugIn, CacheEntriesNeedFlagBitsZeroAndOne) {
  RegisterLegacy(kReverb, "Legacy Reverb", true, true);
  List(0);
  // {id, type of "Flags" (REG_NONE: absent), value, listed flags (0: not listed)}
  const struct { BYTE id; DWORD type, value, flags; } rows[] = {
      {0x01, REG_DWORD, 3, 3}, {0x02, REG_DWORD, 1, 0},          {0x03, REG_DWORD, 2, 0},
      {0x04, REG_DWORD, 0x80000003, 0}, {0x05, REG_DWORD, 7, 7}, {0x06, REG_NONE, 0, 3},
      {0x08, REG_BINARY, 1, 3}};
  for (const auto &r : rows) {
    SetStr(HKEY_LOCAL_MACHINE, CacheKey(TestId(r.id)), nullptr, "entry");
    if (r.type != REG_NONE) SetRaw(HKEY_LOCAL_MACHINE, CacheKey(TestId(r.id)), "Flags", r.type, &r.value, 4);
  }
  SetDword(HKEY_LOCAL_MACHINE, CacheKey(kDenied), "Flags", 3);
  SetDword(HKEY_LOCAL_MACHINE, std::string(kCache) + "\\not a clsid", "Flags", 3);

  const Listing l = List(0);
  for (const auto &r : rows)
    EXPECT_EQ(r.flags, l.Has(TestId(r.id)) ? l.At(TestId(r.id)).flags : 0u) << int(r.id);
  EXPECT_FALSE(l.Has(kDenied));
  EXPECT_EQ(2u, CachedFlags(TestId(0x03))); // a valid cache is not rewritten
}

// The cache is trusted while its version and the fingerprints of the registrations hold.
TEST_F(PlugIn, ValidityRules) {
  RegisterLegacy(kReverb, "Legacy Reverb", true, true);
  auto bin = [](const char *name, const std::string &bytes) {
    SetRaw(HKEY_LOCAL_MACHINE, kCache, name, REG_BINARY, bytes.data(), bytes.size());
  };
  const std::string other(16, '\x5A');
  const struct { const char *what; std::function<void()> change; bool trusted; } rows[] = {
      {"unchanged", [] {}, true},
      {"version 3", [&] { bin("Version", std::string("\3\0\0\0", 4)); }, true},
      {"version 1", [&] { bin("Version", std::string("\1\0\0\0", 4)); }, false},
      {"version as DWORD", [] { SetDword(HKEY_LOCAL_MACHINE, kCache, "Version", 2); }, false},
      {"no version", [] { RegDeleteKeyValueA(HKEY_LOCAL_MACHINE, kCache, "Version"); }, false},
      {"track differs", [&] { bin("CheckSumAM1Track", other); }, false},
      {"2.0 differs", [&] { bin("CheckSumAM1_2.0", other); }, false},
      {"all three stale", [&] { for (const char *v : kAm1) bin(v, other); }, false},
      {"sums of 8 bytes", [&] { for (const char *v : kAm1) bin(v, other.substr(8)); }, false},
      {"category sums without flag 1", [&] { bin("CheckSumDX5", other); }, true},
      {"a filter registered", [] { RegisterLegacy(kDelay, "delay", true, true); }, false},
      {"a filter removed", [] { Unregister(kDelay); }, false},
  };
  for (const auto &r : rows) {
    List(KYPLUGIN_LIST_REBUILD);
    SetCachedName(kReverb, "From Cache");
    r.change();
    EXPECT_STREQ(r.trusted ? "From Cache" : "Legacy Reverb", List(0).At(kReverb).name) << r.what;
  }
  // A cache written without flag 1 has no category sums: invalid for a caller with flag 1.
  List(KYPLUGIN_LIST_REBUILD);
  SetCachedName(kReverb, "From Cache");
  EXPECT_EQ("Legacy Reverb", List(KYPLUGIN_LIST_MAPPER | KYPLUGIN_LIST_INPROCESS).names.at(0));
}

TEST_F(PlugIn, Flag4IgnoresTheCacheAndFlag2KeepsTheUsersMarks) {
  RegisterLegacy(kReverb, "Legacy Reverb", true, true);
  RegisterLegacy(kDelay, "delay", true, true);
  List(0);
  SetDword(HKEY_LOCAL_MACHINE, CacheKey(kReverb), "Flags", 0x80000003);
  SetCachedName(kDelay, "From Cache");
  EXPECT_EQ(std::vector<std::string>{"From Cache"}, List(0).names);

  EXPECT_EQ((std::vector<std::string>{"delay"}), List(KYPLUGIN_LIST_REBUILD).names);
  EXPECT_EQ(0x80000003u, CachedFlags(kReverb)); // the mark survives a forced rebuild

  SetCachedName(kDelay, "From Cache");
  EXPECT_EQ((std::vector<std::string>{"delay", "Legacy Reverb"}), List(KYPLUGIN_LIST_NOCACHE).names);
  EXPECT_EQ(3u, CachedFlags(kReverb)); // nothing was read, so the mark is gone
}

TEST_F(PlugIn, IgnoreAndRename) {
  EXPECT_EQ(E_FAIL, KyPlugIn_Ignore(0, &kReverb, 1)); // no list at all
  EXPECT_EQ(E_FAIL, KyPlugIn_Rename(0, &kReverb, "x"));
  RegisterLegacy(kReverb, "Legacy Reverb", true, true);
  RegisterLegacy(kSpaced, "Spaced", true, true);
  RegisterLegacy(kDelay, "delay", true, true);

  const std::string longName(100, 'n');
  EXPECT_EQ(S_OK, KyPlugIn_Rename(0, &kReverb, longName.c_str()));
  EXPECT_EQ(longName.substr(0, 63), List(0).At(kReverb).name);

  EXPECT_EQ(S_OK, KyPlugIn_Ignore(0, &kSpaced, 1));
  EXPECT_FALSE(List(0).Has(kSpaced));
  EXPECT_EQ(0x80000003u, CachedFlags(kSpaced));
  EXPECT_EQ(E_INVALIDARG, KyPlugIn_Ignore(0, &kSpaced, 0)); // ignored entries cannot be found

  // Rewriting the cache drops the ignored entry; a rebuild brings it back unignored.
  EXPECT_EQ(S_OK, KyPlugIn_Rename(0, &kDelay, "Zed"));
  EXPECT_EQ(0xFFFFFFFFu, CachedFlags(kSpaced));
  EXPECT_EQ((std::vector<std::string>{longName.substr(0, 63), "Zed"}), List(0).names);
  EXPECT_TRUE(List(KYPLUGIN_LIST_REBUILD).Has(kSpaced));

  EXPECT_EQ(S_OK, KyPlugIn_Ignore(0, &kDelay, 2)); // only the lowest bit counts: clears
  EXPECT_EQ(3u, CachedFlags(kDelay));
  EXPECT_EQ(S_OK, KyPlugIn_Ignore(0, &kDelay, 3));
  EXPECT_EQ(0x80000003u, CachedFlags(kDelay));

  EXPECT_EQ(E_INVALIDARG, KyPlugIn_Ignore(0, &kExt, 1));
  EXPECT_EQ(E_INVALIDARG, KyPlugIn_Rename(0, &kExt, "x"));
  EXPECT_EQ(E_POINTER, KyPlugIn_Ignore(0, nullptr, 1));
  EXPECT_EQ(E_POINTER, KyPlugIn_Rename(0, &kReverb, nullptr));
}

TEST_F(PlugIn, SortedCaseInsensitivelyAndFound) {
  RegisterLegacy(kReverb, "gamma", true, true);
  RegisterLegacy(kSpaced, "ALPHA2", true, true);
  RegisterLegacy(kDelay, "beta", true, true);
  RegisterLegacy(kBlank, "Alpha", true, true);
  EXPECT_EQ((std::vector<std::string>{"Alpha", "ALPHA2", "beta", "gamma"}), List(0).names);
  DWORD count = 0;
  KYPLUGINNODE *head = KyPlugIn_CreateList(&count, 0, nullptr);
  const GUID missing = TestId(0xBF);
  EXPECT_EQ(nullptr, KyPlugIn_FindNode(head, &missing));
  EXPECT_EQ(nullptr, KyPlugIn_FindNode(head, nullptr));
  EXPECT_EQ(nullptr, KyPlugIn_FindNode(nullptr, &missing));
  KyPlugIn_FreeList(head);
  KyPlugIn_FreeList(nullptr);
}

namespace {

// The scan process's exit: waits at most `ms`; STILL_ACTIVE when it has not ended.
DWORD WaitForExit(DWORD pid, DWORD ms) {
  HANDLE p = OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
  if (!p) return 0xFFFFFFFF; // gone and reaped
  DWORD code = STILL_ACTIVE;
  if (WaitForSingleObject(p, ms) == WAIT_OBJECT_0) GetExitCodeProcess(p, &code);
  CloseHandle(p);
  return code;
}

// While alive, an unhandled exception ends the faulting process at once instead of starting
// the debugger (an empty debugger command cannot be started), in both registry views.
class NoCrashDebugger {
public:
  NoCrashDebugger() {
    for (int i = 0; i < 2; ++i) had_[i] = Swap(kView[i], "", &old_[i]);
  }
  ~NoCrashDebugger() {
    for (int i = 0; i < 2; ++i) Swap(kView[i], had_[i] ? old_[i].c_str() : nullptr, nullptr);
  }

private:
  // Sets "Debugger" (deletes it for null); answers whether it was there, and its old text.
  static bool Swap(REGSAM view, const char *value, std::string *old) {
    HKEY k;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, "Software\\Microsoft\\Windows NT\\CurrentVersion\\AeDebug", 0, nullptr,
                        0, KEY_ALL_ACCESS | view, nullptr, &k, nullptr) != ERROR_SUCCESS)
      return false;
    char buf[512] = "";
    DWORD size = sizeof buf - 1;
    const bool had = RegQueryValueExA(k, "Debugger", nullptr, nullptr, reinterpret_cast<BYTE *>(buf), &size) == 0;
    if (old) *old = buf;
    if (value) RegSetValueExA(k, "Debugger", 0, REG_SZ, reinterpret_cast<const BYTE *>(value), lstrlenA(value) + 1);
    else RegDeleteValueA(k, "Debugger");
    RegCloseKey(k);
    return had;
  }
  static constexpr REGSAM kView[2] = {KEY_WOW64_32KEY, KEY_WOW64_64KEY};
  bool had_[2] = {};
  std::string old_[2];
};

} // namespace

TEST_F(PlugIn, MapperScanRunsInRunDll32OrWithFlag8InThisProcess) {
  RegisterFilter(kExt, "ky_tf_ext.dll", "Test Echo");
  const std::string longName = "Test Gain " + std::string(90, 'g');
  RegisterFilter(kPlain, "ky_tf_plain.dll", longName.c_str());
  const Listing l = List(KYPLUGIN_LIST_MAPPER);
  std::string cmd;
  const DWORD scan = LastScanPid(&cmd);
  ASSERT_NE(0u, scan);
  EXPECT_NE(GetCurrentProcessId(), scan);
  char path[MAX_PATH], shortPath[MAX_PATH];
  GetModuleFileNameA(GetModuleHandleA("tellarok.dll"), path, MAX_PATH);
  ASSERT_NE(0u, GetShortPathNameA(path, shortPath, MAX_PATH));
  EXPECT_EQ(std::string("RunDLL32.exe ") + shortPath + ",_KyPlugIn_Grovel@16 0 Orvanel_Grovel_Event", cmd);
  ASSERT_TRUE(l.Has(kExt) && l.Has(kPlain));
  EXPECT_EQ(7u, l.At(kExt).flags);
  EXPECT_EQ(3u, l.At(kPlain).flags);
  EXPECT_EQ(longName.substr(0, 63), l.At(kPlain).name);
  EXPECT_EQ(scan, Recorded("ext.pid"));
  const std::string host = Raw(HKEY_CURRENT_USER, kRecord, "ext.host").c_str();
  EXPECT_EQ(0, lstrcmpiA(host.c_str() + (host.size() > 12 ? host.size() - 12 : 0), "rundll32.exe")) << host;
  EXPECT_EQ(nullptr, GetModuleHandleA("ky_tf_ext.dll")); // never loaded here
  EXPECT_EQ(2u, Recorded("Created"));
  const std::string dx5 = Fingerprint(kInstance);
  for (const char *v : {"CheckSumDX5", "CheckSumDX5Track", "CheckSumDX5_2.0"})
    EXPECT_EQ(dx5, Raw(HKEY_LOCAL_MACHINE, kCache, v)) << v;

  // The valid cache answers without a scan or any filter created, with or without flag 8.
  EXPECT_EQ(l.count, List(KYPLUGIN_LIST_MAPPER).count);
  EXPECT_EQ(l.count, List(KYPLUGIN_LIST_MAPPER | KYPLUGIN_LIST_INPROCESS).count);
  EXPECT_EQ(2u, Recorded("Created"));
  EXPECT_EQ(scan, LastScanPid());
  WaitForExit(scan, 30000);

  // Flag 8 scans in this process, with the caller's module installed for the filters.
  HMODULE self = GetModuleHandleA(nullptr);
  const Listing in = List(KYPLUGIN_LIST_MAPPER | KYPLUGIN_LIST_INPROCESS | KYPLUGIN_LIST_REBUILD, self);
  EXPECT_EQ(scan, LastScanPid());
  ASSERT_TRUE(in.Has(kExt) && in.Has(kPlain));
  EXPECT_EQ(7u, in.At(kExt).flags);
  EXPECT_STREQ("Test Echo", in.At(kExt).name);
  EXPECT_EQ(longName.substr(0, 63), in.At(kPlain).name);
  EXPECT_EQ(4u, Recorded("Created"));
  EXPECT_EQ(GetCurrentProcessId(), Recorded("ext.pid"));
  EXPECT_EQ(static_cast<DWORD>(reinterpret_cast<UINT_PTR>(self)), Recorded("ext.resource"));
  auto current = kytest::Export<HMODULE(WINAPI *)()>("KyInternal_PlugInResourceModule");
  ASSERT_NE(nullptr, current);
  EXPECT_EQ(nullptr, current()); // uninstalled afterwards
  // A handle that names no module is not installed.
  List(KYPLUGIN_LIST_MAPPER | KYPLUGIN_LIST_INPROCESS | KYPLUGIN_LIST_REBUILD,
       reinterpret_cast<HINSTANCE>(static_cast<UINT_PTR>(0x12340000)));
  EXPECT_EQ(0u, Recorded("ext.resource"));
}

TEST_F(PlugIn, CrashingFilterKillsOnlyTheScanProcess) {
  NoCrashDebugger quiet;
  RegisterFilter(kExt, "ky_tf_ext.dll", "Test Echo");
  List(KYPLUGIN_LIST_MAPPER | KYPLUGIN_LIST_INPROCESS); // the cache a scan would have written
  RegisterFilter(kCrash, "ky_tf_crash.dll", "Test Crash");

  const Listing l = List(KYPLUGIN_LIST_MAPPER); // returns although the scan process died
  const DWORD scan = LastScanPid();
  ASSERT_NE(0u, scan);
  EXPECT_EQ(scan, Recorded("crash.pid"));
  const DWORD code = WaitForExit(scan, 30000);
  EXPECT_NE(STILL_ACTIVE, code);
  EXPECT_NE(0u, code);
  // The caller answers with what the old cache held and makes it valid again, so the broken
  // filter is not scanned at every start.
  EXPECT_TRUE(l.Has(kExt));
  EXPECT_FALSE(l.Has(kCrash));
  const DWORD created = Recorded("Created");
  List(KYPLUGIN_LIST_MAPPER);
  EXPECT_EQ(created, Recorded("Created"));
}

TEST_F(PlugIn, HangingFilterIsAbandonedAfterTheWait) {
  auto setTimeout = kytest::Export<DWORD(WINAPI *)(DWORD)>("KyInternal_PlugInSetScanTimeout");
  ASSERT_NE(nullptr, setTimeout);
  HANDLE release = CreateEventA(nullptr, TRUE, FALSE, "tellarok_test_release_hang");
  ASSERT_NE(nullptr, release);
  ResetEvent(release);
  RegisterFilter(kHang, "ky_tf_hang.dll", "Test Hang");
  EXPECT_EQ(240000u, setTimeout(4000));
  const DWORD start = GetTickCount();
  List(KYPLUGIN_LIST_MAPPER);
  const DWORD waited = GetTickCount() - start;
  setTimeout(0);
  const DWORD scan = LastScanPid();
  ASSERT_NE(0u, scan);
  EXPECT_GE(waited, 3900u);
  EXPECT_LT(waited, 60000u);
  EXPECT_EQ(STILL_ACTIVE, WaitForExit(scan, 0)); // abandoned, not killed
  for (int i = 0; i < 600 && Recorded("hang.pid") == 0; ++i) Sleep(100); // slow process starts
  EXPECT_EQ(scan, Recorded("hang.pid"));
  SetEvent(release); // let it finish before the registrations go
  EXPECT_EQ(0u, WaitForExit(scan, 60000));
  CloseHandle(release);
}
