/* tellarok keyframes and parameter interpolation. */
#ifndef TELLAROK_KY_KEYFRAME_H
#define TELLAROK_KY_KEYFRAME_H

#include "ky_base.h"

#endif
