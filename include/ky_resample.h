/* tellarok sample-rate conversion. */
#ifndef TELLAROK_KY_RESAMPLE_H
#define TELLAROK_KY_RESAMPLE_H

#include "ky_base.h"

#endif
