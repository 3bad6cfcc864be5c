/* tellarok bitmap descriptors, pixel formats and prepared parameter records. */
#ifndef TELLAROK_KY_VIDEO_H
#define TELLAROK_KY_VIDEO_H

#include "ky_base.h"

#endif
