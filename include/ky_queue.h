/* tellarok queues: thread-safe intrusive FIFO queues with a wake-up event. */
#ifndef TELLAROK_KY_QUEUE_H
#define TELLAROK_KY_QUEUE_H

#include "ky_base.h"

#endif
