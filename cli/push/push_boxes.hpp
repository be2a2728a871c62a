// Pushes all boxes that a request names, one after another.
#ifndef VESK_CLI_PUSH_PUSH_BOXES_HPP
#define VESK_CLI_PUSH_PUSH_BOXES_HPP

#include "process/exit_codes.hpp"
#include "push/push_request.hpp"

namespace cli
{

// A box that fails is told and does not stop the others; an engine that cannot be reached does.
// Throws a failure where nothing can be begun.
exit_code push_boxes(const push_request &request);

} // namespace cli

#endif
