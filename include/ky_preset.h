/* tellarok filter presets. */
#ifndef TELLAROK_KY_PRESET_H
#define TELLAROK_KY_PRESET_H

#include "ky_base.h"

#endif
