// The lock around the library and the messages of the call at hand. A process that forks while
// another thread is inside the library waits for it: the child would find the lock taken for ever.
#include "library_call.hpp"

#include <pthread.h>
#include <string_view>

#include <vesk/error.h>

#include "process/terminal.hpp"

namespace vesk_python
{
namespace
{

// A damaged file may tell much; the places of one file are limited where they are told.
constexpr std::size_t most_messages = 1000;

std::mutex &library_mutex()
{
    // Never destroyed: threads may outlive the end of the interpreter.
    static auto &mutex = *new std::mutex;
    return mutex;
}

messages &collected()
{
    static auto &all = *new messages;
    return all;
}

// Exceptions must not pass through what tells: without memory the message is lost.
void collect(std::string_view text)
{
    try {
        if (collected().size() < most_messages) {
            collected().emplace_back(text);
        }
    } catch (const std::bad_alloc &) {
        return;
    }
}

} // namespace

void prepare_library()
{
    cli::listen_to_messages(collect);
    pthread_atfork([] { library_mutex().lock(); }, [] { library_mutex().unlock(); },
                   [] { library_mutex().unlock(); });
}

library_call::library_call() : library_(library_mutex())
{
    collected().clear();
    qe_set_last_error(0);
}

messages library_call::take_messages()
{
    return std::exchange(collected(), {});
}

} // namespace vesk_python
