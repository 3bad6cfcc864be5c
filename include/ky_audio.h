/* tellarok audio sample formats, conversion, mixing and envelopes. */
#ifndef TELLAROK_KY_AUDIO_H
#define TELLAROK_KY_AUDIO_H

#include "ky_base.h"

#endif
