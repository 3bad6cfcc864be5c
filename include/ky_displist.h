/* tellarok display lists. */
#ifndef TELLAROK_KY_DISPLIST_H
#define TELLAROK_KY_DISPLIST_H

#include "ky_base.h"

#endif
