// How far two sets of values lie apart, whatever a few of them do: the robust standardised
// difference of Algina, Keselman and Penfield ("An Alternative to Cohen's Standardized Mean
// Difference Effect Size: A Robust Parameter and Confidence Interval in the Two Independent Groups
// Case", Psychological Methods 10, 2005). The means are taken without the lowest and the highest
// fifth, and the unit is the deviation that remains when these are drawn in to the rest.
#ifndef VESK_CLI_ANALYSIS_ROBUST_DIFFERENCE_HPP
#define VESK_CLI_ANALYSIS_ROBUST_DIFFERENCE_HPP

#include <vector>

namespace cli
{

struct weighted_value {
    double value;
    double weight; // above 0
};

struct robust_summary {
    double mean = 0;      // without the fifths
    double deviation = 0; // with the fifths drawn in
    double whole_deviation = 0;
};

// Sorts @p values, which must not be empty.
robust_summary summarise(std::vector<weighted_value> &values);

struct robust_difference {
    // How far the second lies above the first, in deviations; infinite where neither varies and
    // they differ.
    double shift = 0;
    // The natural logarithm of the factor by which the second varies more, within most_spread.
    double spread = 0;

    // The larger one of the two without its sign.
    double size() const;
};

// A sensor that varies twenty times as much, or one that was constant and is not.
constexpr double most_spread = 3;

// Both count alike, however many values they have.
robust_difference difference_of(const robust_summary &first, const robust_summary &second);

// The limits of Cohen ("Statistical Power Analysis for the Behavioral Sciences", 1988).
constexpr double large_from = 0.8;
constexpr double medium_from = 0.5;
constexpr double small_from = 0.2;

} // namespace cli

#endif
