/* The resampler's header as a C client sees it: the layout checks hold in C as well, and
 * the exports link by their plain names. */
#include "ky_resample.h"

long ResampleOpenCloseFromC(void) {
  HKYRESAMPLE h = 0;
  HRESULT hr = KyAudio_ResampleOpen(&h, KYSAMPLE_F32, 44100, 48000, 2, KYRESAMPLE_SINC);
  if (hr == S_OK) hr = KyAudio_ResampleClose(h);
  return (long)hr;
}
