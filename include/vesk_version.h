/**
 * @file
 * @brief The version of the library: that of the headers, and that of the library at run time.
 *
 * The numbers follow semantic versioning. The version of the stored forms is another number, which
 * the files of a box carry in themselves.
 */
#ifndef VESK_VESK_VERSION_H
#define VESK_VESK_VERSION_H

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The only place of the number: CMake reads its project version from the next three lines. */
#define VESK_VERSION_MAJOR 1 /**< changes when a program linked before would break */
#define VESK_VERSION_MINOR 0 /**< changes when something is added */
#define VESK_VERSION_PATCH 0 /**< changes when a fault is fixed */

/** @cond */
#define VESK_VERSION_QUOTE(number) #number
#define VESK_VERSION_TEXT(major, minor, patch)                                                     \
    VESK_VERSION_QUOTE(major) "." VESK_VERSION_QUOTE(minor) "." VESK_VERSION_QUOTE(patch)
/** @endcond */

/** The version of these headers, "MAJOR.MINOR.PATCH": that which a program was compiled with. */
#define VESK_VERSION VESK_VERSION_TEXT(VESK_VERSION_MAJOR, VESK_VERSION_MINOR, VESK_VERSION_PATCH)

/**
 * @return the version of the library that the program runs with, in the form of #VESK_VERSION;
 *         never null. The text belongs to the library and lives as long as the process.
 *
 * It differs from #VESK_VERSION where another library is installed than the one that the program
 * was compiled with. Cannot fail and does not touch the last-error cell.
 */
VESK_API const char *vesk_version(void);

#ifdef __cplusplus
}
#endif

#endif
