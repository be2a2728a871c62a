#include <vesk/error.h>

#include "support/precondition.hpp"

static int last_error = 0;

void qe_set_last_error(int err)
{
    VESK_REQUIRE(err <= 0, "err <= 0");
    last_error = err;
}

int qe_get_last_error(void)
{
    return last_error;
}
