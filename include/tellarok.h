/* tellarok: the whole exported interface of the Tellaro run-time kernel (tellarok.dll).
 * One header per family; include this one to get them all. Compiles as C and as C++. */
#ifndef TELLAROK_H
#define TELLAROK_H

#include "ky_base.h"
#include "ky_kernel.h"
#include "ky_list.h"
#include "ky_queue.h"
#include "ky_metric.h"
#include "ky_status.h"
#include "ky_error.h"
#include "ky_text.h"
#include "ky_time.h"
#include "ky_riff.h"
#include "ky_riff64.h"
#include "ky_iff.h"
#include "ky_summary.h"
#include "ky_displist.h"
#include "ky_fmmeta.h"
#include "ky_video.h"
#include "ky_geometry.h"
#include "ky_abuffer.h"
#include "ky_audio.h"
#include "ky_resample.h"
#include "ky_plugin.h"
#include "ky_keyframe.h"
#include "ky_preset.h"
#include "ky_syncout.h"
#include "ky_path.h"

#endif
