// Times of which a box hands out no row although something was recorded then: they are no gaps.
#ifndef VESK_CLI_BOX_LEFT_OUT_HPP
#define VESK_CLI_BOX_LEFT_OUT_HPP

#include <vector>

#include "box/row_choice.hpp"

namespace cli
{

// The time between two rows, from the end of the first to the start of the second, without what is
// only left out at its ends.
row_span without_left_out(row_span between, const std::vector<row_span> &left_out);

} // namespace cli

#endif
