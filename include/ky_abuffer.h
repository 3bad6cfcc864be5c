/* tellarok anti-aliased polygon rasteriser. */
#ifndef TELLAROK_KY_ABUFFER_H
#define TELLAROK_KY_ABUFFER_H

#include "ky_base.h"

#endif
