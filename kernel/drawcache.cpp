// The drawing-object cache of the user-interface helpers: 54 colour values (a built-in
// default table copied into a live table at start-up and on every system colour change)
// and one lazily created solid brush per value. Also the drawing helpers' 1024-byte shared
// pattern table.
#include "ky_internal.h"

#include <commctrl.h>
#include <string.h>

namespace ky {

namespace {
constexpr int kEntries = 54;

// Defaults: the control colours of the editor's dark and light panels, meters and track
// colours, as COLORREF (0x00BBGGRR).
const DWORD kDefaults[kEntries] = {
    0x00C0C0C0, 0x00808080, 0x00FFFFFF, 0x00000000, 0x00404040, 0x00E0E0E0, 0x00A0A0A0,
    0x00606060, 0x00202020, 0x00F0F0F0, 0x0000FF00, 0x0000FFFF, 0x000000FF, 0x00008000,
    0x00008080, 0x00000080, 0x00FF0000, 0x00800000, 0x00FFFF00, 0x00808000, 0x00FF00FF,
    0x00800080, 0x00C08040, 0x004080C0, 0x0040C080, 0x00C04080, 0x008040C0, 0x0080C040,
    0x00303030, 0x00505050, 0x00707070, 0x00909090, 0x00B0B0B0, 0x00D0D0D0, 0x00102040,
    0x00204060, 0x00406080, 0x006080A0, 0x0080A0C0, 0x00A0C0E0, 0x00C0E0FF, 0x00FFE0C0,
    0x00E0C0A0, 0x00C0A080, 0x00A08060, 0x00806040, 0x00604020, 0x00402010, 0x00F8F8F8,
    0x00E8E8E8, 0x00D8D8D8, 0x00C8C8C8, 0x00B8B8B8, 0x00A8A8A8};

DWORD g_live[kEntries];
HBRUSH g_brushes[kEntries];
BYTE g_patternTable[1024];
} // namespace

void DrawCacheLoadDefaults() { memcpy(g_live, kDefaults, sizeof g_live); }

void DrawCacheFlush() {
  for (HBRUSH &b : g_brushes) {
    if (b) DeleteObject(b);
    b = nullptr;
  }
}

void DrawCacheRelease() { DrawCacheFlush(); }

void ClearSharedPatternTable() { memset(g_patternTable, 0, sizeof g_patternTable); }

void ControlsInitialize() {
  INITCOMMONCONTROLSEX icc = {sizeof icc, ICC_WIN95_CLASSES};
  InitCommonControlsEx(&icc);
}

void ControlsTerminate() {}

} // namespace ky

// The live colour value `index` (0..53), or CLR_INVALID for another index.
extern "C" DWORD WINAPI KyGetCacheColor(LONG index) {
  return index >= 0 && index < ky::kEntries ? ky::g_live[index] : CLR_INVALID;
}

// A solid brush of colour `index`, owned by the cache (do not delete it); null for another
// index. Brushes are deleted and recreated after a system colour change.
extern "C" HBRUSH WINAPI KyGetCacheBrush(LONG index) {
  if (index < 0 || index >= ky::kEntries) return nullptr;
  if (!ky::g_brushes[index]) ky::g_brushes[index] = CreateSolidBrush(ky::g_live[index]);
  return ky::g_brushes[index];
}
