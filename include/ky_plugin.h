/* tellarok effect plug-in discovery. */
#ifndef TELLAROK_KY_PLUGIN_H
#define TELLAROK_KY_PLUGIN_H

#include "ky_base.h"

#endif
