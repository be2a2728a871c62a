// Seeding of rand() for programs that must be able to repeat a run: the seed is logged with the
// place that set it.
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <vesk/debug.h>

#include "support/precondition.hpp"

// Open from the first seed until the process exits.
static FILE *seed_log = nullptr;

static FILE *_open_seed_log()
{
    if (seed_log == nullptr) {
        FILE *fp = fopen("srand.log", "w");
        VESK_REQUIRE(fp != nullptr, "fp != ((void *)0)");
        seed_log = fp;
    }
    return seed_log;
}

void _qe_srand(unsigned int seed, const char *file, int line)
{
    const int shown_seed = static_cast<int>(seed);
    fprintf(_open_seed_log(), "%s:%d: seed=%d\n", file, line, shown_seed);
    printf("\n%s:%d: seed=%d\n", file, line, shown_seed);
    srand(seed);
}

void _qe_srand_clock(const char *file, int line)
{
    _qe_srand(static_cast<unsigned int>(time(nullptr)), file, line);
}
