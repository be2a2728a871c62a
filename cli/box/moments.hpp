// Count, mean, deviation, skewness and kurtosis of samples and of intervals whose samples are gone,
// merged in double precision, with a bound of the error that the single-precision sums of the
// intervals bring in.
#ifndef VESK_CLI_BOX_MOMENTS_HPP
#define VESK_CLI_BOX_MOMENTS_HPP

#include <cstdint>
#include <limits>

#include <vesk/hist_value.h>

namespace cli
{

// The way in which the sums of intervals were made, which decides how exact they are.
struct summing {
    uint32_t samples = 0;   // in a buffer; 0 if unknown
    uint32_t intervals = 0; // that a buffer is summed up into

    // The most additions that a sample of an interval with @p count samples went through.
    double additions(double count) const;
};

// A number, and whether it may be off by more than 5 % because little is left of it in the sums.
struct estimate {
    double value; // NaN where nothing is known
    bool is_rough;

    // For outputs that have no room for a mark: a rough number is missing there.
    double reliable() const { return is_rough ? std::numeric_limits<double>::quiet_NaN() : value; }
};

class moments;

// What an interval tells of one sensor. Rows of a tier keep mean and deviation themselves, of which
// sums in single precision tell less.
struct interval_summary : hist_value {
    const moments *kept = nullptr; // null where the sums are all that there is
};

class moments
{
public:
    moments() = default;
    // Of one interval.
    moments(const hist_value &interval, const summing &how) { add(interval, how); }
    moments(const interval_summary &interval, const summing &how) { add(interval, how); }

    // Of the values in rows that keep their means and deviations, each in single precision, all of
    // them of as many values: @p means of the rows, @p mean_square of the deviations, which is off
    // by no more than the part @p square_error of it.
    static moments of_rows(const moments &means, double mean_square, double square_error,
                           const hist_value &all);

    // A missing reading (NaN) changes nothing.
    void add(float value);
    // An interval that is not possible changes nothing, either.
    void add(const hist_value &interval, const summing &how);
    void add(const interval_summary &interval, const summing &how);
    void merge(const moments &other);

    // False where the extremes contradict each other: no recorder has written that.
    static bool is_possible(const hist_value &interval);

    uint64_t count() const { return count_; }
    // All of these are NaN without samples. The mean lies within the extremes; the deviation, that
    // of the population, is 0 where they are equal and never larger than they allow.
    double least() const { return least_; }
    double greatest() const { return greatest_; }
    double mean() const;
    estimate deviation() const;
    // NaN also when nothing varies, when the sums have overflowed, and when too little is left in
    // them.
    double skewness() const;
    // 3 for a normal distribution.
    double kurtosis() const;

private:
    // The bounds that the extremes set.
    double possible_mean(double mean) const;
    double possible_m2(double m2) const;
    double least_m2() const;
    double greatest_m2(double mean) const;
    double largest_m2_error() const;
    void take_from_extremes();
    void keep_possible();

    uint64_t count_ = 0;
    double least_ = 0;
    double greatest_ = 0;
    double mean_ = 0;
    // Sums of powers of the distances from the mean, and bounds of the errors of all four.
    double m2_ = 0;
    double m3_ = 0;
    double m4_ = 0;
    double mean_error_ = 0;
    double m2_error_ = 0;
    double m3_error_ = 0;
    double m4_error_ = 0;
};

} // namespace cli

#endif
