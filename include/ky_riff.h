/* tellarok RIFF chunk I/O. */
#ifndef TELLAROK_KY_RIFF_H
#define TELLAROK_KY_RIFF_H

#include "ky_base.h"

#endif
