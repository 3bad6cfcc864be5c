/* tellarok MIDI time-code output and the timer service. */
#ifndef TELLAROK_KY_SYNCOUT_H
#define TELLAROK_KY_SYNCOUT_H

#include "ky_base.h"

#endif
