/* tellarok error handler: status texts, user messages, detail lines, dumps. */
#ifndef TELLAROK_KY_ERROR_H
#define TELLAROK_KY_ERROR_H

#include "ky_base.h"

#endif
