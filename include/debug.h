/**
 * @file
 * @brief A seeded random generator whose runs can be repeated.
 */
#ifndef VESK_DEBUG_H
#define VESK_DEBUG_H

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Seeds rand() with @p seed and logs the seed, so that a failing run can be repeated.
 *
 * The line "FILE:LINE: seed=SEED" goes to standard output, after an empty line, and to "srand.log"
 * in the current directory. The first call of a process truncates that log; it stays open and is
 * not flushed before the process exits.
 *
 * @param file,line the caller's source position: __FILE__ and __LINE__.
 *
 * Aborts with "fp != ((void *)0)" when the log cannot be opened.
 */
VESK_API void _qe_srand(unsigned int seed, const char *file, int line);

/** As _qe_srand() with the current time in seconds as the seed. */
VESK_API void _qe_srand_clock(const char *file, int line);

#ifdef __cplusplus
}
#endif

#endif
