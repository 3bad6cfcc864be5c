/* tellarok cue points from files and metadata side files. */
#ifndef TELLAROK_KY_FMMETA_H
#define TELLAROK_KY_FMMETA_H

#include "ky_base.h"

#endif
