// Checks preconditions: a bad call ends the process in every build type. The text that is printed
// is part of the interface, so it is written out and never generated from the condition.
#ifndef VESK_SUPPORT_PRECONDITION_HPP
#define VESK_SUPPORT_PRECONDITION_HPP

// <assert.h> declares this only without NDEBUG, which a release build sets. The attribute is spelt
// as there, because clang takes no [[noreturn]] on a second declaration.
extern "C" void __assert_fail(const char *assertion, const char *file, unsigned int line,
                              const char *function) noexcept __attribute__((noreturn));

#define VESK_REQUIRE(condition, text)                                                              \
    (__builtin_expect(static_cast<bool>(condition), 1)                                             \
         ? static_cast<void>(0)                                                                    \
         : __assert_fail(text, __FILE__, __LINE__, __func__))

#endif
