// Ownership inside a function: an owner destroys its object on every path out, unless the object
// was released to somebody else before. This is the one idiom for clean-up in the library.
#ifndef VESK_SUPPORT_OWNER_HPP
#define VESK_SUPPORT_OWNER_HPP

#include <cstdio>
#include <cstdlib>

template <typename T, auto Dispose>
class owner
{
public:
    explicit owner(T *object = nullptr) : object_(object) {}
    owner(owner &&other) noexcept : object_(other.release()) {}
    owner(const owner &) = delete;
    owner &operator=(const owner &) = delete;
    owner &operator=(owner &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~owner() { reset(); }

    T *get() const { return object_; }
    T *operator->() const { return object_; }
    T &operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }

    // Releases the object to the caller.
    T *release()
    {
        T *object = object_;
        object_ = nullptr;
        return object;
    }

    // Destroys the object, if any, and takes another one.
    void reset(T *object = nullptr)
    {
        if (object_ != nullptr) {
            Dispose(object_);
        }
        object_ = object;
    }

private:
    T *object_;
};

template <typename T, void (*Destroy)(T **)>
void destroy_owned(T *object)
{
    Destroy(&object);
}

template <typename T>
void free_owned(T *memory)
{
    free(memory);
}

inline void close_owned(FILE *file)
{
    (void)fclose(file);
}

// An object that X_destroy(&p) destroys: owned<matrix, matrix_destroy>.
template <typename T, void (*Destroy)(T **)>
using owned = owner<T, destroy_owned<T, Destroy>>;

// Owns memory from malloc().
template <typename T>
using owned_memory = owner<T, free_owned<T>>;

// Owns an open stdio stream.
using owned_file = owner<FILE, close_owned>;

#endif
