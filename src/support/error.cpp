// The last-error cell of the process, which keeps the code of the latest failure, and the error
// codes in words.
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

const char *qe_error_text(int code)
{
    switch (code) {
    case 0:
        return "no error";
    case QE_ERROR_SYNTAX:
        return "a configuration line has no key or no value";
    case QE_ERROR_FULL:
        return "the buffer is full";
    case QE_ERROR_WRONG_KIND:
        return "the file holds the other kind of buffer";
    case QE_ERROR_UNKNOWN_KIND:
        return "not a buffer file, or its first record names no sensors";
    case QE_ERROR_MALFORMED:
        return "malformed or out-of-range content";
    case QE_ERROR_DIVISION_BY_ZERO:
        return "division by zero";
    case QE_ERROR_BAD_TIME:
        return "malformed time, or a time out of range";
    case QE_ERROR_BAD_VERSION:
        return "unknown version of a stored form";
    case QE_ERROR_NO_MEMORY:
        return "out of memory";
    case QE_ERROR_OPEN:
        return "a file cannot be opened";
    case QE_ERROR_IO:
        return "reading or writing failed, or a header is bad";
    case QE_ERROR_COMPRESSION:
        return "compression failed, or a header was not written";
    case QE_ERROR_END_OF_RECORDS:
        return "the data ended where a record or a string was expected";
    case QE_ERROR_NOT_FULL:
        return "the history buffer is not full, or the text is empty";
    case QE_ERROR_TRUNCATED:
        return "the data ends inside an item";
    case QE_ERROR_LIMIT:
        return "a count or a length is over 10000, or a stored count is 0";
    case QE_ERROR_NEGATIVE_ROOT:
        return "square root of a negative number";
    case QE_ERROR_EXISTS:
        return "it is there already";
    case QE_ERROR_ABSENT:
        return "there is nothing of this name";
    default:
        return "unknown error";
    }
}
