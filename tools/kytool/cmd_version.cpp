// kytool version: the library's version word and the client handshake.
#include "kytool.h"

#include <stdio.h>
#include "ky_kernel.h"

namespace {

int Version(const kytool::Args &args) {
  if (!args.empty()) {
    fprintf(stderr, "usage: kytool version\n");
    return 2;
  }
  DWORD v = KyKernel_GetVersion();
  printf("tellarok version 0x%08lX (major %lu, minor %lu, build %lu)\n", (unsigned long)v,
         (unsigned long)(v >> 24), (unsigned long)((v >> 16) & 0xFF), (unsigned long)(v & 0xFFFF));
  HRESULT hr = KyKernel_CheckVersion(nullptr, "kytool", KY_KERNEL_VERSION, KY_HANDSHAKE_REVISION, 0);
  printf("handshake for version 0x%08lX, revision %d: %s (0x%08lX)\n", (unsigned long)KY_KERNEL_VERSION,
         KY_HANDSHAKE_REVISION, SUCCEEDED(hr) ? "accepted" : "refused", (unsigned long)hr);
  printf("threads attached: %ld\n", (long)KyKernelGetThreadCount());
  return SUCCEEDED(hr) ? 0 : 1;
}

} // namespace

KYTOOL_COMMAND("version", "", "print the version word and run the version handshake", Version, Version, 10);
