// Moves the ends of a time without rows inwards, over what was left out there.
#include "box/left_out.hpp"

namespace cli
{

row_span without_left_out(row_span between, const std::vector<row_span> &left_out)
{
    for (const row_span &each : left_out) {
        if (each.start <= between.start + 1 && each.end > between.start) {
            between.start = each.end;
        }
        if (each.end >= between.end - 1 && each.start < between.end) {
            between.end = each.start;
        }
    }
    return between;
}

} // namespace cli
