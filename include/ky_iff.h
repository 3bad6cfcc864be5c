/* tellarok IFF and AIFF chunk I/O and the wave-format probe. */
#ifndef TELLAROK_KY_IFF_H
#define TELLAROK_KY_IFF_H

#include "ky_base.h"

#endif
