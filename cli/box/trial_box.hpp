// Measures what samples cost: writes them into small boxes in a temporary folder, and looks at the
// size of the files and at the processor time that the turns of the buffers take.
#ifndef VESK_CLI_BOX_TRIAL_BOX_HPP
#define VESK_CLI_BOX_TRIAL_BOX_HPP

#include <string>
#include <vector>

#include "box/box_size.hpp"
#include "box/shape_search.hpp"

namespace cli
{

struct trial_result {
    record_bytes records; // as they are in the files, compressed
    rotation_cost rotation;
};

// @p samples, at least one, each with a value for every name, are written again and again. Throws a
// failure when the folder for temporary files takes no box.
trial_result try_samples(const std::vector<std::string> &names,
                         const std::vector<std::vector<float>> &samples);

} // namespace cli

#endif
