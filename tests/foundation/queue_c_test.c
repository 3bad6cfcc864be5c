/* IsInKyQueue as a C client sees it: the plain export, not the C++ decorated one. */
#include "ky_queue.h"

int QueueIsInFromC(tKYQHEAD *head, tKYQELM *element) { return IsInKyQueue(head, element); }
