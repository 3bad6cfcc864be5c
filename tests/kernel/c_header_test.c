/* The public headers compile as C (this file is C, not C++), layout checks included. */
#include "tellarok.h"

int ky_c_header_probe(void) { return (int)sizeof(tKYLIST) + (int)sizeof(tKYMETRIC); }
