// A record of a buffer that a test reads into: empty at first, and released when the test is done
// with it. The kinds of buffers have records of their own, so their fixtures name the kind.
#ifndef VESK_TESTS_BUFFERS_RECORD_TO_READ_HPP
#define VESK_TESTS_BUFFERS_RECORD_TO_READ_HPP

template <typename Record, auto InitNull, auto Destruct>
class record_to_read
{
public:
    record_to_read() { InitNull(&record_); }
    record_to_read(const record_to_read &) = delete;
    record_to_read &operator=(const record_to_read &) = delete;
    ~record_to_read() { Destruct(&record_); }
    Record *get() { return &record_; }
    Record *operator->() { return &record_; }

private:
    Record record_;
};

#endif
