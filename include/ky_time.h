/* tellarok SMPTE time code and media time. */
#ifndef TELLAROK_KY_TIME_H
#define TELLAROK_KY_TIME_H

#include "ky_base.h"

#endif
