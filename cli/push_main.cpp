// vesk-push: what `vesk push` starts. It is a program of its own, so that the recorder is linked
// with nothing that only a push needs. Its words are those of push_request, which the verb has
// checked.
#include <string>
#include <vector>

#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "push/push_boxes.hpp"

namespace
{

using namespace cli;

exit_code run(const std::vector<std::string> &words)
{
    try {
        const push_request request = request_in(words);
        request.check();
        return push_boxes(request);
    } catch (const failure &reason) {
        complain(reason.what());
        return reason.code();
    } catch (const std::exception &error) {
        complain(error.what());
        return exit_failed;
    }
}

} // namespace

int main(int argc, char **argv)
{
    secure_standard_streams();
    try {
        return run({argv + (argc > 0 ? 1 : 0), argv + argc});
    } catch (...) {
        // There is no memory even for the message.
        return exit_failed;
    }
}
