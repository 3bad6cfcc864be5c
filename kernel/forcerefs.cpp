// KyKernel_ForceRefs: one call into each family with null or zero arguments, so that a
// linker that drops unreferenced code keeps every family in the module. It is exported and
// never called; the callees are all guarded, so even a call does no harm.
#include "ky_internal.h"
#include "ky_kernel.h"

extern "C" void WINAPI KyKernel_ForceRefs() {
  KyList_Destroy(nullptr);
  KyMetric_Close(nullptr);
}
