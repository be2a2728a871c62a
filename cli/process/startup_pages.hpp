// The pages of programs and libraries that only the start of a process needs.
#ifndef VESK_CLI_PROCESS_STARTUP_PAGES_HPP
#define VESK_CLI_PROCESS_STARTUP_PAGES_HPP

namespace cli
{

// Takes the code and the constants of this process out of its memory; what runs on comes back from
// the page cache. For a process that stays when its start is over: reading options, making a box
// and finding the sensors of a machine take much more code than a sample.
void leave_startup_pages();

} // namespace cli

#endif
