// A host program for the module-frame tests: loads tellarok.dll and answers, as its exit
// code, the frame's state flags (bit 0 utility process, 1 kernel settings open, 2 window
// class registered, 3 token list, 4 language handle). The tests run copies of it under
// other names, such as RunDll32.EXE.
#include <windows.h>

int main() {
  HMODULE m = LoadLibraryA("tellarok.dll");
  if (!m) return 0x100;
  auto flags = reinterpret_cast<DWORD(WINAPI *)()>(
      reinterpret_cast<void *>(GetProcAddress(m, "KyInternal_GetFrameFlags")));
  if (!flags) return 0x200;
  DWORD f = flags();
  WNDCLASSA wc;
  if (GetClassInfoA(m, "KyKrn_ExplorerEx_Class", &wc)) f |= 0x20;
  FreeLibrary(m);
  return static_cast<int>(f);
}
