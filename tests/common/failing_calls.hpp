// Makes chosen calls of the library fail: every test program is linked so that the library's
// malloc(), calloc(), strdup(), deflate() and inflate() pass through here. Tests use it to walk a
// function through its N-th failure, N = 1, 2, 3 ... until it succeeds.
#ifndef VESK_TESTS_COMMON_FAILING_CALLS_HPP
#define VESK_TESTS_COMMON_FAILING_CALLS_HPP

// While it lives, the n-th allocation from now on fails: only that one, or also all that follow.
class failing_allocation
{
public:
    enum duration { once, for_ever };

    explicit failing_allocation(int n, duration how_long = once);
    failing_allocation(const failing_allocation &) = delete;
    failing_allocation &operator=(const failing_allocation &) = delete;
    ~failing_allocation();

    // Whether the call got as far as the n-th allocation.
    static bool happened();
};

// While it lives, the n-th call of deflate() or inflate() from now on does nothing and returns
// `code`.
class failing_zlib
{
public:
    failing_zlib(int n, int code);
    failing_zlib(const failing_zlib &) = delete;
    failing_zlib &operator=(const failing_zlib &) = delete;
    ~failing_zlib();
};

#endif
