/* tellarok summary information lists. */
#ifndef TELLAROK_KY_SUMMARY_H
#define TELLAROK_KY_SUMMARY_H

#include "ky_base.h"

#endif
