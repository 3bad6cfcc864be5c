// Every export of the manifests is found in the built DLL under its plain name and, for
// stdcall functions, under its MSVC-style alias _Name@N.
#include <gtest/gtest.h>
#include <windows.h>
#include <string>

namespace {
struct ExportRow {
  const char *name;
  int argBytes;  // -1: cdecl, -2: decorated C++ name
};
const ExportRow kExports[] = {
#include "ky_export_table.inc"
};
} // namespace

TEST(Exports, EveryNameAndAliasResolves) {
  HMODULE m = LoadLibraryA("tellarok.dll");
  ASSERT_NE(m, nullptr);
  for (const ExportRow &e : kExports) {
    EXPECT_NE(GetProcAddress(m, e.name), nullptr) << e.name;
    if (e.argBytes >= 0) {
      std::string alias = "_" + std::string(e.name) + "@" + std::to_string(e.argBytes);
      FARPROC a = GetProcAddress(m, alias.c_str());
      EXPECT_NE(a, nullptr) << alias;
      EXPECT_EQ(a, GetProcAddress(m, e.name)) << alias << " is not the same function";
    }
  }
  FreeLibrary(m);
}

TEST(Exports, ImportsOnlySystemDlls) {
  HMODULE m = GetModuleHandleA("tellarok.dll");
  ASSERT_NE(m, nullptr);
  auto *base = reinterpret_cast<BYTE *>(m);
  auto *dos = reinterpret_cast<IMAGE_DOS_HEADER *>(base);
  auto *nt = reinterpret_cast<IMAGE_NT_HEADERS32 *>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY &dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  ASSERT_NE(dir.VirtualAddress, 0u);
  const char *allowed[] = {"kernel32.dll", "user32.dll", "gdi32.dll", "advapi32.dll",
                           "ole32.dll", "oleaut32.dll", "msvcrt.dll", "winmm.dll",
                           "msacm32.dll", "shlwapi.dll", "comctl32.dll", "comdlg32.dll",
                           "shell32.dll", "version.dll", "quartz.dll", "mpr.dll", "msvfw32.dll"};
  for (auto *imp = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR *>(base + dir.VirtualAddress);
       imp->Name; ++imp) {
    const char *name = reinterpret_cast<const char *>(base + imp->Name);
    bool ok = false;
    for (const char *a : allowed) ok = ok || lstrcmpiA(name, a) == 0;
    EXPECT_TRUE(ok) << "imports " << name;
  }
}
