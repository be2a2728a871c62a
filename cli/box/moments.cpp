// Two sets are merged by the pairwise formulas of Chan, Golub and LeVeque ("Updating Formulae and a
// Pairwise Algorithm for Computing Sample Variances", 1979) for the mean and the variance, and of
// Pebay ("Formulas for Robust, One-Pass Parallel Computation of Covariances and Arbitrary-Order
// Statistical Moments", 2008) for the third and fourth moment.
//
// An interval holds sums of powers in single precision. A sum whose terms went through d additions
// is off by at most d u times the sum of their sizes (u = 2^-24; Higham, "Accuracy and Stability of
// Numerical Algorithms", 2002, section 4.2). That bound is carried through all that follows. Double
// precision adds nothing that would count beside it.
#include "box/moments.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace cli
{
namespace
{

constexpr double nothing = std::numeric_limits<double>::quiet_NaN();

// A sum that has overflowed holds no information.
double mean_of(float sum, double count)
{
    return std::isfinite(sum) ? static_cast<double>(sum) / count : nothing;
}

} // namespace

double summing::additions(double count) const
{
    if (samples == 0 || intervals == 0) {
        return count;
    }
    // One by one in the first interval; then each merger adds one, and it doubles the samples until
    // an interval is the oldest, which takes in one more each time that the buffers take turns.
    const double first = static_cast<double>(samples) / intervals;
    if (count <= first) {
        return count;
    }
    return std::min(count, first + std::ceil(std::log2(count / first)) + count / samples);
}

void moments::add(float value)
{
    if (std::isnan(value)) {
        return;
    }
    moments one;
    one.count_ = 1;
    one.mean_ = one.least_ = one.greatest_ = static_cast<double>(value);
    merge(one);
}

bool moments::is_possible(const hist_value &interval)
{
    return interval.count == 0 || interval.min_value <= interval.max_value;
}

void moments::add(const hist_value &interval, const summing &how)
{
    if (interval.count == 0 || !is_possible(interval)) {
        return;
    }
    moments one;
    const double n = interval.count;
    one.count_ = interval.count;
    one.least_ = static_cast<double>(interval.min_value);
    one.greatest_ = static_cast<double>(interval.max_value);
    const double s1 = mean_of(interval.sum, n);
    const double s2 = mean_of(interval.sum_squares, n);
    const double s3 = mean_of(interval.sum_cubes, n);
    const double s4 = mean_of(interval.sum_fourth_powers, n);
    // The powers themselves are rounded up to three times, and small ones to whole multiples of the
    // least number that there is.
    const double error = (how.additions(n) + 3) * 0x1p-24;
    const double tiny = 0x1p-147;
    const double largest = std::max(std::fabs(one.least_), std::fabs(one.greatest_));
    const double m = one.possible_mean(s1);
    const double square = std::min(s2 + tiny, largest * largest);
    const double size = std::fabs(m);
    one.mean_ = m;
    one.mean_error_ = std::min(error * std::sqrt(square), one.greatest_ - one.least_);
    const double off = one.mean_error_;
    one.m2_ = n * (s2 - m * m);
    one.m2_error_ = n * (error * square + tiny + 2 * size * off);
    one.m3_ = n * (s3 - 3 * m * s2 + 2 * m * m * m);
    one.m3_error_ = n * (error * square * (largest + 3 * size) + tiny * (1 + 3 * size) +
                         off * (3 * square + 6 * m * m));
    one.m4_ = n * (s4 - 4 * m * s3 + 6 * m * m * s2 - 3 * m * m * m * m);
    one.m4_error_ = n * (error * square * (largest * largest + 4 * size * largest + 6 * m * m) +
                         tiny * (1 + 4 * size + 6 * m * m) +
                         off * (4 * largest * square + 12 * size * square + 12 * size * m * m));
    one.keep_possible();
    merge(one);
}

void moments::add(const interval_summary &interval, const summing &how)
{
    if (interval.kept != nullptr) {
        merge(*interval.kept);
    } else {
        add(static_cast<const hist_value &>(interval), how);
    }
}

moments moments::of_rows(const moments &means, double mean_square, double square_error,
                         const hist_value &all)
{
    moments one;
    if (means.count_ == 0 || all.count == 0 || !is_possible(all)) {
        return one;
    }
    const double n = all.count;
    const double in_row = n / static_cast<double>(means.count_);
    one.count_ = all.count;
    one.least_ = static_cast<double>(all.min_value);
    one.greatest_ = static_cast<double>(all.max_value);
    one.m3_ = one.m4_ = nothing;
    const double m2 = in_row * means.m2_ + n * mean_square;
    if (!std::isfinite(one.least_) || !std::isfinite(one.greatest_) ||
        !std::isfinite(means.mean_) || !std::isfinite(m2)) {
        one.mean_ = one.m2_ = nothing;
        return one;
    }
    one.mean_ = one.possible_mean(means.mean_);
    one.mean_error_ =
        std::min(means.mean_error_ + std::fabs(means.mean_) * 0x1p-24, one.greatest_ - one.least_);
    one.m2_ = m2;
    one.m2_error_ = in_row * means.m2_error_ + n * mean_square * square_error;
    one.keep_possible();
    return one;
}

void moments::keep_possible()
{
    if (count_ <= 2 || least_ == greatest_) {
        take_from_extremes();
    } else if (!std::isnan(m2_)) {
        m2_ = possible_m2(m2_);
        m2_error_ = std::min(m2_error_, largest_m2_error());
    }
}

// One or two samples, or samples that are all the same: the extremes tell all about them.
void moments::take_from_extremes()
{
    const double width = count_ == 2 ? greatest_ - least_ : 0;
    mean_ = width == 0 ? least_ : least_ + width / 2;
    m2_ = width * width / 2;
    m3_ = 0;
    m4_ = m2_ * m2_ / 2;
    mean_error_ = m2_error_ = m3_error_ = m4_error_ = 0;
}

// Both extremes are among the samples, so not all of the others can lie at one of them.
double moments::possible_mean(double mean) const
{
    const double nearest = (greatest_ - least_) / static_cast<double>(count_);
    const double low = least_ + nearest;
    const double high = greatest_ - nearest;
    return low <= high ? std::clamp(mean, low, high) : std::clamp(mean, least_, greatest_);
}

// The deviation is least when all samples but the extremes lie in the middle between these.
double moments::least_m2() const
{
    const double width = greatest_ - least_;
    return width * width / 2;
}

// The deviation is largest when every sample is one of the extremes (Bhatia and Davis, "A Better
// Bound on the Variance", 2000).
double moments::greatest_m2(double mean) const
{
    return static_cast<double>(count_) * (greatest_ - mean) * (mean - least_);
}

double moments::possible_m2(double m2) const
{
    const double most = greatest_m2(possible_mean(mean_));
    return std::clamp(m2, std::min(least_m2(), most), most);
}

double moments::largest_m2_error() const
{
    // Among the possible means, the one nearest to the middle allows the largest deviation.
    const double middle = least_ + (greatest_ - least_) / 2;
    const double mean = possible_mean(std::clamp(middle, mean_ - mean_error_, mean_ + mean_error_));
    return greatest_m2(mean) - std::min(least_m2(), greatest_m2(mean));
}

void moments::merge(const moments &other)
{
    if (other.count_ == 0) {
        return;
    }
    if (count_ == 0) {
        *this = other;
        return;
    }
    const auto a = static_cast<double>(count_);
    const auto b = static_cast<double>(other.count_);
    const double n = a + b;
    const double d = other.mean_ - mean_;
    const double size = std::fabs(d);
    const double d_error = mean_error_ + other.mean_error_;
    const double ab = a * b / n;
    // The fourth and third moments need the old values of those below them.
    m4_ += other.m4_ + d * d * d * d * ab * (a * a - a * b + b * b) / (n * n) +
           6 * d * d * (a * a * other.m2_ + b * b * m2_) / (n * n) +
           4 * d * (a * other.m3_ - b * m3_) / n;
    m4_error_ += other.m4_error_ +
                 4 * size * size * size * d_error * ab * (a * a + a * b + b * b) / (n * n) +
                 12 * size * d_error * (a * a * other.m2_ + b * b * m2_) / (n * n) +
                 6 * d * d * (a * a * other.m2_error_ + b * b * m2_error_) / (n * n) +
                 4 * d_error * (a * std::fabs(other.m3_) + b * std::fabs(m3_)) / n +
                 4 * size * (a * other.m3_error_ + b * m3_error_) / n;
    m3_ += other.m3_ + d * d * d * ab * (a - b) / n + 3 * d * (a * other.m2_ - b * m2_) / n;
    m3_error_ += other.m3_error_ + 3 * d * d * d_error * ab * std::fabs(a - b) / n +
                 3 * d_error * (a * other.m2_ + b * m2_) / n +
                 3 * size * (a * other.m2_error_ + b * m2_error_) / n;
    m2_ += other.m2_ + d * d * ab;
    m2_error_ += other.m2_error_ + (2 * size + d_error) * d_error * ab;
    mean_ += d * b / n;
    mean_error_ = (a * mean_error_ + b * other.mean_error_) / n;
    least_ = std::min(least_, other.least_);
    greatest_ = std::max(greatest_, other.greatest_);
    count_ += other.count_;
}

double moments::mean() const
{
    return count_ == 0 || std::isnan(mean_) ? nothing : possible_mean(mean_);
}

estimate moments::deviation() const
{
    // The relative error of the variance; that of the deviation is half of it.
    constexpr double most_error = 0.1;
    if (count_ == 0 || std::isnan(m2_)) {
        return {nothing, false};
    }
    if (least_ == greatest_) {
        return {std::isfinite(mean_) ? 0 : nothing, false};
    }
    const double m2 = possible_m2(m2_);
    const double error = std::min(m2_error_, largest_m2_error());
    return {std::sqrt(m2 / static_cast<double>(count_)), !(error <= most_error * m2)};
}

double moments::skewness() const
{
    constexpr double most_error = 0.05;
    const auto n = static_cast<double>(count_);
    const estimate spread = deviation();
    if (std::isnan(spread.value) || spread.value == 0 || spread.is_rough) {
        return nothing;
    }
    const double cube = n * spread.value * spread.value * spread.value;
    const double value = m3_ / cube;
    // No distribution of so many samples has a larger value.
    const double limit = (n - 2) / std::sqrt(n - 1) + most_error;
    return m3_error_ <= most_error * cube && std::fabs(value) <= limit ? value : nothing;
}

double moments::kurtosis() const
{
    constexpr double most_error = 0.1;
    const auto n = static_cast<double>(count_);
    const estimate spread = deviation();
    if (std::isnan(spread.value) || spread.value == 0 || spread.is_rough) {
        return nothing;
    }
    const double fourth = n * spread.value * spread.value * spread.value * spread.value;
    const double value = m4_ / fourth;
    return m4_error_ <= most_error * fourth && value >= 1 - most_error && value <= n + most_error
               ? std::max(value, 1.0)
               : nothing;
}

} // namespace cli
