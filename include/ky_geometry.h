/* tellarok 2D and 3D vectors and matrices. */
#ifndef TELLAROK_KY_GEOMETRY_H
#define TELLAROK_KY_GEOMETRY_H

#include "ky_base.h"

#endif
