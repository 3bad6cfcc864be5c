/* A client built the way an MSVC project builds one (clang in MSVC mode, lld-link, the
 * MSVC-style import library tellarok.lib). It exits with 0 when the imported functions
 * answer as they should. No C run-time and no SDK headers: the declarations are written out. */
__declspec(dllimport) unsigned long __stdcall KyKernel_GetVersion(void);
__declspec(dllimport) long __stdcall KyList_Destroy(void *list);
__declspec(dllimport) long __stdcall KyKernel_CheckVersion(void *owner, const char *client,
                                                           unsigned long required, long revision,
                                                           unsigned long reserved);
__declspec(dllimport) void __stdcall ExitProcess(unsigned code);

void start(void) {
  unsigned code = 0;
  if (KyKernel_GetVersion() != 0x01000015ul) code |= 1;
  if (KyList_Destroy(0) != 0) code |= 2;
  if (KyKernel_CheckVersion(0, "msvc client", 0x01000015ul, 2, 0) != 0) code |= 4;
  ExitProcess(code);
}
