/**
 * @file
 * @brief What holds for every header of libvesk.
 *
 * 1. Naming. A function is named after its type and what it does: `sensor_array_get_size`. Names
 *    that begin with an underscore belong to debugging aids.
 * 2. Life of an object. `X_init` works on storage of the caller, `X_create` allocates;
 *    `X_init_null` and `X_create_null` make an empty live object for a reader to fill. `X_destruct`
 *    releases the contents, `X_destroy(&p)` also frees the object and sets the caller's pointer to
 *    null. The first field of most objects is `version`: it is 0 after `X_destruct`.
 * 3. Results. Functions that return a signed number return a negative error code (see error.h) on
 *    failure. Functions that return a pointer return null on failure and leave the code in the
 *    last-error cell; success never clears the cell. Predicates return 1 or 0.
 * 4. Bad input is an error code, a bad call aborts: a violated precondition ends the process
 *    through the C library's assertion facility in every build type. Unless a function says
 *    otherwise, every pointer must be non-null and every object live, that is its `version` must
 *    be that of its type.
 * 5. Ownership. What a `create`, `copy` or `read` function returns belongs to the caller, and all
 *    memory comes from malloc(): release it with the type's `destroy`, or with free() where a
 *    function says so. What a `get` function returns stays the object's own and lives as long as
 *    that object is not changed.
 * 6. Stored forms. Integers are big-endian, floating-point numbers IEEE 754 in network byte order.
 *    Counts and lengths of strings are limited to 10000. A function that writes a form returns the
 *    sum of what the writer reported, so the sizes that are given hold on a raw writer; a function
 *    that reads a form returns the bytes consumed, 0 at a clean end of data before the form, and
 *    QE_ERROR_TRUNCATED (-48) where the data ends inside it.
 * 7. Threads. Nothing is locked: the library and all its objects belong to one thread at a time.
 */
#ifndef VESK_API_H
#define VESK_API_H

/** Marks what the shared library exports. */
#define VESK_API __attribute__((visibility("default")))

#endif
