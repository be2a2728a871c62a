#ifndef VESK_DEBUG_H
#define VESK_DEBUG_H

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API void _qe_srand(unsigned int seed, const char *file, int line);
VESK_API void _qe_srand_clock(const char *file, int line);

#ifdef __cplusplus
}
#endif

#endif
