// A small DirectShow filter for the plug-in discovery tests, built four ways:
//   KYTF_VARIANT_EXT    offers the extension interface besides the base-filter interface;
//   KYTF_VARIANT_PLAIN  offers only the base-filter interface;
//   KYTF_VARIANT_CRASH  its creation raises an access violation (kills the creating process);
//   KYTF_VARIANT_HANG   its creation blocks until the test sets "tellarok_test_release_hang"
//                       (at most two minutes), then fails.
// Every creation is recorded under HKEY_CURRENT_USER "Software\tellarok-tests\filters": the
// running count "Created", and per variant the creating process id, the creating program and
// the resource module that tellarok reported while the filter was created.
#include <windows.h>
#include <strmif.h>

#include <new>

#if defined(KYTF_VARIANT_EXT)
#define KYTF_NAME "ext"
static const CLSID kClsid = {0x6B1D7C10, 0x5A2E, 0x4F31, {0x9C, 0x3A, 0, 0, 0, 0, 0, 0xE1}};
#elif defined(KYTF_VARIANT_PLAIN)
#define KYTF_NAME "plain"
static const CLSID kClsid = {0x6B1D7C10, 0x5A2E, 0x4F31, {0x9C, 0x3A, 0, 0, 0, 0, 0, 0xE2}};
#elif defined(KYTF_VARIANT_CRASH)
#define KYTF_NAME "crash"
static const CLSID kClsid = {0x6B1D7C10, 0x5A2E, 0x4F31, {0x9C, 0x3A, 0, 0, 0, 0, 0, 0xE3}};
#elif defined(KYTF_VARIANT_HANG)
#define KYTF_NAME "hang"
static const CLSID kClsid = {0x6B1D7C10, 0x5A2E, 0x4F31, {0x9C, 0x3A, 0, 0, 0, 0, 0, 0xE4}};
#else
#error "choose a variant"
#endif

static const IID kIidExtension = {0x8568D2A1, 0x2A86, 0x11D3, {0x9E, 0x94, 0x00, 0xC0, 0x4F, 0x68, 0xBE, 0x44}};
static const IID kIidBaseFilter = {0x56A86895, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
static const IID kIidMediaFilter = {0x56A86899, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};

static volatile LONG g_objects;

static void Record() {
  HKEY key;
  if (RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\tellarok-tests\\filters", 0, nullptr, 0,
                      KEY_ALL_ACCESS, nullptr, &key, nullptr) != ERROR_SUCCESS)
    return;
  DWORD created = 0, type = 0, size = sizeof created;
  if (RegQueryValueExA(key, "Created", nullptr, &type, reinterpret_cast<BYTE *>(&created), &size) !=
      ERROR_SUCCESS)
    created = 0;
  ++created;
  RegSetValueExA(key, "Created", 0, REG_DWORD, reinterpret_cast<BYTE *>(&created), sizeof created);
  const DWORD pid = GetCurrentProcessId();
  RegSetValueExA(key, KYTF_NAME ".pid", 0, REG_DWORD, reinterpret_cast<const BYTE *>(&pid), sizeof pid);
  char exe[MAX_PATH] = {0};
  GetModuleFileNameA(nullptr, exe, MAX_PATH);
  RegSetValueExA(key, KYTF_NAME ".host", 0, REG_SZ, reinterpret_cast<BYTE *>(exe), lstrlenA(exe) + 1);
  // The resource module tellarok has installed for the rebuild that creates this filter.
  DWORD resource = 0;
  if (HMODULE ky = GetModuleHandleA("tellarok.dll")) {
    typedef HMODULE(WINAPI * Fn)();
    if (auto fn = reinterpret_cast<Fn>(reinterpret_cast<void *>(GetProcAddress(ky, "KyInternal_PlugInResourceModule"))))
      resource = static_cast<DWORD>(reinterpret_cast<UINT_PTR>(fn()));
  }
  RegSetValueExA(key, KYTF_NAME ".resource", 0, REG_DWORD, reinterpret_cast<BYTE *>(&resource),
                 sizeof resource);
  RegCloseKey(key);
  RegFlushKey(HKEY_CURRENT_USER);
}

class Filter : public IBaseFilter {
public:
  Filter() { InterlockedIncrement(&g_objects); }
  virtual ~Filter() { InterlockedDecrement(&g_objects); }

  STDMETHODIMP QueryInterface(REFIID iid, void **out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    bool ok = IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, kIidBaseFilter) ||
              IsEqualIID(iid, kIidMediaFilter) || IsEqualIID(iid, IID_IPersist);
#if defined(KYTF_VARIANT_EXT)
    ok = ok || IsEqualIID(iid, kIidExtension); // a marker interface: no methods of its own
#endif
    if (!ok) return E_NOINTERFACE;
    *out = static_cast<IBaseFilter *>(this);
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return InterlockedIncrement(&refs_); }
  STDMETHODIMP_(ULONG) Release() override {
    const LONG r = InterlockedDecrement(&refs_);
    if (r == 0) delete this;
    return r;
  }
  STDMETHODIMP GetClassID(CLSID *id) override {
    if (!id) return E_POINTER;
    *id = kClsid;
    return S_OK;
  }
  STDMETHODIMP Stop() override { return S_OK; }
  STDMETHODIMP Pause() override { return S_OK; }
  STDMETHODIMP Run(REFERENCE_TIME) override { return S_OK; }
  STDMETHODIMP GetState(DWORD, FILTER_STATE *state) override {
    if (!state) return E_POINTER;
    *state = State_Stopped;
    return S_OK;
  }
  STDMETHODIMP SetSyncSource(IReferenceClock *) override { return S_OK; }
  STDMETHODIMP GetSyncSource(IReferenceClock **clock) override {
    if (!clock) return E_POINTER;
    *clock = nullptr;
    return S_OK;
  }
  STDMETHODIMP EnumPins(IEnumPins **pins) override {
    if (pins) *pins = nullptr;
    return E_NOTIMPL;
  }
  STDMETHODIMP FindPin(LPCWSTR, IPin **pin) override {
    if (pin) *pin = nullptr;
    return E_FAIL;
  }
  STDMETHODIMP QueryFilterInfo(FILTER_INFO *info) override {
    if (!info) return E_POINTER;
    ZeroMemory(info, sizeof *info);
    return S_OK;
  }
  STDMETHODIMP JoinFilterGraph(IFilterGraph *, LPCWSTR) override { return S_OK; }
  STDMETHODIMP QueryVendorInfo(LPWSTR *info) override {
    if (info) *info = nullptr;
    return E_NOTIMPL;
  }

private:
  LONG refs_ = 1;
};

class Factory : public IClassFactory {
public:
  STDMETHODIMP QueryInterface(REFIID iid, void **out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!IsEqualIID(iid, IID_IUnknown) && !IsEqualIID(iid, IID_IClassFactory)) return E_NOINTERFACE;
    *out = static_cast<IClassFactory *>(this);
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return 2; }
  STDMETHODIMP_(ULONG) Release() override { return 1; }
  STDMETHODIMP CreateInstance(IUnknown *outer, REFIID iid, void **out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    Record();
#if defined(KYTF_VARIANT_CRASH)
    RaiseException(EXCEPTION_ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
#elif defined(KYTF_VARIANT_HANG)
    HANDLE release = CreateEventA(nullptr, TRUE, FALSE, "tellarok_test_release_hang");
    if (release) {
      WaitForSingleObject(release, 120000);
      CloseHandle(release);
    }
    return E_FAIL;
#endif
    Filter *f = new (std::nothrow) Filter;
    if (!f) return E_OUTOFMEMORY;
    const HRESULT hr = f->QueryInterface(iid, out);
    f->Release();
    return hr;
  }
  STDMETHODIMP LockServer(BOOL) override { return S_OK; }
};

static Factory g_factory;

extern "C" __declspec(dllexport) HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void **out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (!IsEqualCLSID(clsid, kClsid)) return CLASS_E_CLASSNOTAVAILABLE;
  return g_factory.QueryInterface(iid, out);
}

extern "C" __declspec(dllexport) HRESULT WINAPI DllCanUnloadNow() { return g_objects ? S_FALSE : S_OK; }
