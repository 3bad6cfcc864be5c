/* tellarok text formatter and number/token text. */
#ifndef TELLAROK_KY_TEXT_H
#define TELLAROK_KY_TEXT_H

#include "ky_base.h"

#endif
