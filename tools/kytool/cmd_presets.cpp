// kytool presets: saves, lists, loads and deletes presets of a small demonstration effect
// whose class the tool registers with COM for the length of the command, and shows where
// each preset lives (an inline registry value or a preset file).
#include "kytool.h"

#include <objbase.h>
#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <vector>

#include "ky_keyframe.h"
#include "ky_preset.h"

namespace {

// {C6B1D7A0-52E4-4F8B-9A13-0E7F2B64D915}
const CLSID kDemoEffect = {0xc6b1d7a0, 0x52e4, 0x4f8b, {0x9a, 0x13, 0x0e, 0x7f, 0x2b, 0x64, 0xd9, 0x15}};

// The demonstration effect: its parameter state is a byte string (a gradient of `size` bytes
// starting at `seed`), saved and loaded through IPersistStream.
class DemoEffect final : public IPersistStream {
public:
  std::vector<BYTE> state;
  STDMETHODIMP QueryInterface(REFIID riid, void **ppv) override {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IPersist) ||
        IsEqualIID(riid, IID_IPersistStream)) {
      *ppv = static_cast<IPersistStream *>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++refs_; }
  STDMETHODIMP_(ULONG) Release() override {
    ULONG r = --refs_;
    if (r == 0) delete this;
    return r;
  }
  STDMETHODIMP GetClassID(CLSID *id) override {
    *id = kDemoEffect;
    return S_OK;
  }
  STDMETHODIMP IsDirty() override { return S_FALSE; }
  STDMETHODIMP Load(IStream *in) override {
    state.clear();
    BYTE buf[256];
    ULONG got = 0;
    while (SUCCEEDED(in->Read(buf, sizeof buf, &got)) && got) state.insert(state.end(), buf, buf + got);
    return S_OK;
  }
  STDMETHODIMP Save(IStream *out, BOOL) override {
    ULONG done = 0;
    return state.empty() ? S_OK : out->Write(state.data(), static_cast<ULONG>(state.size()), &done);
  }
  STDMETHODIMP GetSizeMax(ULARGE_INTEGER *size) override {
    size->QuadPart = state.size();
    return S_OK;
  }

private:
  ULONG refs_ = 1;
};

class Factory final : public IClassFactory {
public:
  STDMETHODIMP QueryInterface(REFIID riid, void **ppv) override {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory)) {
      *ppv = this;
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return 2; }
  STDMETHODIMP_(ULONG) Release() override { return 1; }
  STDMETHODIMP CreateInstance(IUnknown *outer, REFIID riid, void **ppv) override {
    if (outer) return CLASS_E_NOAGGREGATION;
    DemoEffect *e = new DemoEffect;
    HRESULT hr = e->QueryInterface(riid, ppv);
    e->Release();
    return hr;
  }
  STDMETHODIMP LockServer(BOOL) override { return S_OK; }
};

// COM started, the demo class registered and one instance created through COM.
struct Session {
  Factory factory;
  DWORD cookie = 0;
  IPersistStream *effect = nullptr;
  bool ok = false;
  Session() {
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) return;
    if (FAILED(CoRegisterClassObject(kDemoEffect, &factory, CLSCTX_INPROC_SERVER,
                                     REGCLS_MULTIPLEUSE, &cookie)))
      return;
    ok = SUCCEEDED(CoCreateInstance(kDemoEffect, nullptr, CLSCTX_INPROC_SERVER,
                                    IID_IPersistStream, reinterpret_cast<void **>(&effect)));
  }
  ~Session() {
    if (effect) effect->Release();
    if (cookie) CoRevokeClassObject(cookie);
    CoUninitialize();
  }
  DemoEffect *Demo() { return static_cast<DemoEffect *>(effect); }
};

std::string KeyPath(LONG family) {
  LPOLESTR wide = nullptr;
  char clsid[64] = {};
  if (SUCCEEDED(StringFromCLSID(kDemoEffect, &wide))) {
    WideCharToMultiByte(CP_ACP, 0, wide, -1, clsid, sizeof clsid, nullptr, nullptr);
    CoTaskMemFree(wide);
  }
  return std::string(family ? "Software\\DXTransform\\Presets\\" : "Software\\DirectShow\\Presets\\") + clsid;
}

// Where a preset lives: "registry value (N bytes)" or "file PATH".
std::string Where(LONG family, const char *name) {
  HKEY key;
  if (RegOpenKeyExA(HKEY_CURRENT_USER, KeyPath(family).c_str(), 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS)
    return "?";
  DWORD type = 0, size = 0;
  std::vector<char> data(1024, 0);
  size = static_cast<DWORD>(data.size() - 1);
  LONG err = RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE *>(data.data()), &size);
  RegCloseKey(key);
  if (err != ERROR_SUCCESS) return "?";
  char buf[64];
  if (type == REG_BINARY) {
    snprintf(buf, sizeof buf, "registry value, REG_BINARY, %lu bytes", static_cast<unsigned long>(size));
    return buf;
  }
  return std::string("file ") + data.data();
}

int List(Session &s, LONG family) {
  LONG count = 0;
  HRESULT hr = KyDSFilter_GetPresetCount(s.effect, &count, family);
  if (hr == 1) {
    printf("no presets (key HKCU\\%s does not exist)\n", KeyPath(family).c_str());
    return 0;
  }
  if (FAILED(hr)) return fprintf(stderr, "kytool: preset count failed: 0x%08lX\n", hr), 1;
  printf("%ld preset(s) under HKCU\\%s\n", count, KeyPath(family).c_str());
  for (LONG i = 0; i < count; ++i) {
    char name[256];
    DWORD size = sizeof name;
    if (KyDSFilter_GetPresetName(s.effect, i, name, &size, family) != S_OK) continue;
    printf("  %-24s %s\n", name, Where(family, name).c_str());
  }
  return 0;
}

int Run(kytool::Args args, bool demo) {
  LONG family = kytool::TakeOption(args, "--family", "ds") == "dx" ? 1 : 0;
  std::string folder = kytool::TakeOption(args, "--folder", "");
  long size = atol(kytool::TakeOption(args, "--size", "64").c_str());
  int seed = atoi(kytool::TakeOption(args, "--seed", "1").c_str());
  Session s;
  if (!s.ok) return fprintf(stderr, "kytool: the demo effect could not be created through COM\n"), 1;
  if (!folder.empty() && KyDSFilter_SetDefaultSavePath(folder.c_str(), family) != S_OK)
    return fprintf(stderr, "kytool: cannot set the save folder\n"), 1;
  if (demo) {
    char where[MAX_PATH];
    // A first run has no save folder yet: give it one under the temporary folder (kept as
    // an expandable value, so it follows the user's %TEMP%).
    if (folder.empty() && KyDSFilter_GetDefaultSavePath(where, sizeof where, family) == 1)
      KyDSFilter_SetDefaultSavePath("%TEMP%\\Tellaro Presets", family);
    if (KyDSFilter_GetDefaultSavePath(where, sizeof where, family) == S_OK)
      printf("save folder for large presets: %s\n", where);
    else
      printf("no \"DefLocation\": large presets go to the program-files presets folder\n");
  }
  std::string verb = args.empty() ? "list" : args[0];
  std::string name = args.size() > 1 ? args[1] : "";
  if (verb == "list") return List(s, family);
  if (name.empty()) return fprintf(stderr, "kytool: presets %s needs a NAME\n", verb.c_str()), 2;
  HRESULT hr;
  if (verb == "save") {
    if (size < 0 || size > 1 << 20) return fprintf(stderr, "kytool: --size 0..1048576\n"), 2;
    s.Demo()->state.resize(static_cast<size_t>(size));
    for (long i = 0; i < size; ++i) s.Demo()->state[i] = static_cast<BYTE>(seed + i);
    hr = KyDSFilter_SavePreset(s.effect, name.c_str(), family);
    if (hr == S_OK) printf("saved \"%s\" (%ld bytes): %s\n", name.c_str(), size, Where(family, name.c_str()).c_str());
  } else if (verb == "load") {
    hr = KyDSFilter_LoadPreset(s.effect, name.c_str(), family);
    const std::vector<BYTE> &st = s.Demo()->state;
    if (hr == S_OK)
      printf("loaded \"%s\": %u bytes, first byte %u, last byte %u\n", name.c_str(),
             static_cast<unsigned>(st.size()), st.empty() ? 0u : st.front(), st.empty() ? 0u : st.back());
  } else if (verb == "delete") {
    hr = KyDSFilter_DeletePreset(s.effect, name.c_str(), family);
    if (hr == S_OK) printf("deleted \"%s\"\n", name.c_str());
  } else {
    return fprintf(stderr, "kytool: presets: unknown action '%s'\n", verb.c_str()), 2;
  }
  if (hr != S_OK) fprintf(stderr, "kytool: presets %s \"%s\" failed: 0x%08lX\n", verb.c_str(), name.c_str(), hr);
  return hr == S_OK ? 0 : 1;
}

int Presets(const kytool::Args &args) { return Run(args, false); }

int PresetsDemo(const kytool::Args &) {
  int rc = 0;
  rc |= Run({"save", "Subtle", "--size", "200"}, true);
  rc |= Run({"save", "Dramatic", "--size", "4000", "--seed", "7"}, false);
  rc |= Run({"list"}, false);
  rc |= Run({"load", "Dramatic"}, false);
  rc |= Run({"delete", "Subtle"}, false);
  rc |= Run({"delete", "Dramatic"}, false);
  rc |= Run({"list"}, false);
  return rc;
}

} // namespace

KYTOOL_COMMAND("presets", "[--family ds|dx] [--folder DIR] [list | save NAME [--size N] [--seed S] | load NAME | delete NAME]",
               "presets of a demo effect: where each lives (registry value or file)",
               Presets, PresetsDemo, 80);
