/* tellarok 64-bit RIFF chunk I/O. */
#ifndef TELLAROK_KY_RIFF64_H
#define TELLAROK_KY_RIFF64_H

#include "ky_base.h"

#endif
