// The life of heap objects: the one way in which X_create and X_destroy are built from X_init and
// X_destruct.
#ifndef VESK_SUPPORT_OBJECT_HPP
#define VESK_SUPPORT_OBJECT_HPP

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <vesk/error.h>

// Storage for `count` objects, not initialised; null and QE_ERROR_NO_MEMORY (-22) in the cell when
// there is no memory.
template <typename T>
T *allocate(std::size_t count = 1)
{
    std::size_t size = 0;
    T *storage = nullptr;
    // NOLINTNEXTLINE(bugprone-sizeof-expression): a list of pointers is meant where T is one
    if (!__builtin_mul_overflow(count, sizeof(T), &size)) {
        storage = static_cast<T *>(malloc(size));
    }
    if (storage == nullptr) {
        qe_set_last_error(QE_ERROR_NO_MEMORY);
    }
    return storage;
}

// As allocate(), filled with zero bytes.
template <typename T>
T *allocate_zeroed(std::size_t count)
{
    // NOLINTNEXTLINE(bugprone-sizeof-expression): as above
    T *storage = static_cast<T *>(calloc(count, sizeof(T)));
    if (storage == nullptr) {
        qe_set_last_error(QE_ERROR_NO_MEMORY);
    }
    return storage;
}

// A copy of `text`; null and QE_ERROR_NO_MEMORY (-22) in the cell when there is no memory.
inline char *duplicate_string(const char *text)
{
    char *copy = strdup(text);
    if (copy == nullptr) {
        qe_set_last_error(QE_ERROR_NO_MEMORY);
    }
    return copy;
}

// Allocates an object and runs `init` on it, which returns 0 or a negative code. Null, with the
// code in the last-error cell and nothing left behind, when either fails.
template <typename T, typename Init>
T *create_object(Init init)
{
    T *object = allocate<T>();
    if (object == nullptr) {
        return nullptr;
    }
    const int result = init(object);
    if (result < 0) {
        free(object);
        qe_set_last_error(result);
        return nullptr;
    }
    return object;
}

// Destructs and frees `*object` and sets it to null. The caller has checked both pointers.
template <typename T>
void destroy_object(T **object, void (*destruct)(T *))
{
    destruct(*object);
    free(*object);
    *object = nullptr;
}

#endif
