// Goes through the tables of all folders: each function is called again and again, and the N-th
// call of a kind that it makes fails, until nothing is left to fail.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <iterator>
#include <sstream>
#include <unistd.h>

#include "common/isolated.hpp"
#include "common/open_files.hpp"
#include "common/temporary_directory.hpp"
#include "faults/fault_loop.hpp"

// ---- The loop ---------------------------------------------------------------------------------

namespace
{

constexpr const char *kind_names[call_kinds] = {
    "allocation", "zlib",  "open",   "read",   "write", "torn write",
    "flush",      "close", "remove", "rename", "sync",  "truncate",
};

// How many failures were tried, in how many cases.
int cases_tried = 0;
int failures_tried = 0;

// Whether the text of a precondition is meant.
bool is_abort(const outcome &found)
{
    return found == "0" || found.find_first_of("(=") != std::string::npos;
}

// A run and what it lost.
outcome run(const fault_case &tried, fault &failure)
{
    const long blocks = count_live_blocks();
    const auto files = count_open_files();
    const outcome found = tried.run(failure);
    EXPECT_EQ(blocks + failure.lost_blocks(), count_live_blocks()) << "blocks of memory";
    EXPECT_EQ(files + failure.lost_files(), count_open_files()) << "open files";
    return found;
}

// The calls of each kind that the function makes when nothing fails.
std::array<int, call_kinds> count_calls(const fault_case &tried)
{
    fault none;
    const auto run_without_failure = [&] {
        tried.prepare();
        EXPECT_EQ("ok", run(tried, none)) << "without a failure";
        tried.check(none, "ok");
    };
    if (!tried.isolated) {
        run_without_failure();
        return none.counts();
    }
    const isolated_run child([&] {
        run_without_failure();
        for (const int count : none.counts()) {
            (void)fprintf(stderr, "%d ", count);
        }
        return 0;
    });
    std::array<int, call_kinds> counts = {};
    std::istringstream told(child.messages());
    std::copy_n(std::istream_iterator<int>(told), call_kinds, counts.begin());
    return counts;
}

// The failures of one kind and duration.
class walk
{
public:
    walk(const fault_case &tried, call_kind kind, failing_call::duration how_long, int calls)
        : tried_(tried), kind_(kind), how_long_(how_long), calls_(calls),
          outcomes_(tried.expected.at(kind))
    {
    }

    // All outcomes.
    std::set<outcome> go()
    {
        const bool may_abort = std::any_of(outcomes_.begin(), outcomes_.end(), is_abort);
        int n = 1;
        while (n <= calls_ && !testing::Test::HasFailure()) {
            n = tried_.isolated ? go_isolated(n, n)
                : may_abort     ? go_isolated(n, calls_)
                                : go_here(n);
        }
        failures_tried += calls_;
        return found_;
    }

private:
    std::string name(int n) const
    {
        return std::string(kind_names[static_cast<size_t>(kind_)]) + " " + std::to_string(n) +
               (how_long_ == failing_call::once ? "" : " and from then on");
    }

    void take(const fault &failure, const outcome &came)
    {
        EXPECT_EQ(1U, outcomes_.count(came)) << came;
        found_.insert(came);
        tried_.check(failure, came);
    }

    // The n-th call fails, in this process. Returns the number of the next one.
    int go_here(int n)
    {
        const testing::ScopedTrace trace(__FILE__, __LINE__, name(n));
        tried_.prepare();
        fault failure(kind_, n, how_long_);
        const outcome came = run(tried_, failure);
        EXPECT_TRUE(failure.happened());
        take(failure, came);
        return n + 1;
    }

    // The calls from `first` to `last` fail one after the other in another process, which tells the
    // outcomes in lines on standard error, "{-22}". A precondition may end it on the way. Returns
    // the number of the next call.
    int go_isolated(int first, int last)
    {
        tried_.prepare();
        (void)fflush(stdout);
        const isolated_run child([&] {
            for (int n = first; n <= last && !testing::Test::HasFailure();) {
                found_.clear();
                n = go_here(n);
                (void)fprintf(stderr, "{%s}\n", found_.begin()->c_str());
            }
            (void)fflush(stdout);
            return testing::Test::HasFailure() ? 1 : 0;
        });
        int next = first;
        std::istringstream lines(child.messages());
        for (std::string line; std::getline(lines, line);) {
            if (line.front() == '{') {
                found_.insert(line.substr(1, line.size() - 2));
                ++next;
            }
        }
        if (!child.aborted()) {
            EXPECT_TRUE(child.exited() && child.code() == 0) << child.messages();
            return next;
        }
        const testing::ScopedTrace trace(__FILE__, __LINE__, name(next));
        take(fault(kind_, next, how_long_), assertion_in(child.messages()));
        return next + 1;
    }

    static outcome assertion_in(const std::string &messages)
    {
        const std::string before = "Assertion `";
        const auto begin = messages.find(before) + before.size();
        return messages.substr(begin, messages.find("' failed.", begin) - begin);
    }

    const fault_case &tried_;
    call_kind kind_;
    failing_call::duration how_long_;
    int calls_;
    const std::set<outcome> &outcomes_;
    std::set<outcome> found_;
};

} // namespace

void for_every_failure(const fault_case &tried)
{
    ++cases_tried;
    const auto calls = count_calls(tried);
    for (int i = 0; i < call_kinds; ++i) {
        const auto kind = static_cast<call_kind>(i);
        const bool expected = tried.expected.count(kind) + tried.left_out.count(kind) != 0;
        const int n = calls[static_cast<size_t>(i)];
        ASSERT_TRUE(expected ? n > 0 : n == 0 || kind == call_kind::torn_write)
            << n << " calls of the kind " << kind_names[i];
    }
    for (const auto &[kind, outcomes] : tried.expected) {
        std::set<outcome> found;
        for (const auto how_long : {failing_call::once, failing_call::for_ever}) {
            found.merge(walk(tried, kind, how_long, calls[static_cast<size_t>(kind)]).go());
            if (testing::Test::HasFailure()) {
                return;
            }
        }
        ASSERT_EQ(outcomes, found) << kind_names[static_cast<size_t>(kind)];
    }
}

std::vector<fault_case> all_cases()
{
    return joined({support_cases(), io_cases(), model_cases(), matrix_cases(), text_cases(),
                   buffer_record_cases(), buffer_cases(), recorder_cases(), recovery_cases()});
}

std::string name_of(const fault_case &tried)
{
    return tried.situation.empty() ? tried.function : tried.function + "_" + tried.situation;
}

void PrintTo(const fault_case &tried, std::ostream *out)
{
    *out << name_of(tried);
}

// ---- Every case -------------------------------------------------------------------------------

namespace
{

class FailingCalls : public testing::TestWithParam<fault_case>
{
protected:
    FailingCalls() : working_folder_(std::filesystem::current_path()), folder_(quickest_parent())
    {
        std::filesystem::current_path(folder_.path());
    }
    ~FailingCalls() override { std::filesystem::current_path(working_folder_); }

private:
    // Thousands of small files are made: in memory, where there is a folder for that.
    static std::filesystem::path quickest_parent()
    {
        const char *const memory = "/dev/shm";
        return access(memory, W_OK) == 0 ? memory : std::filesystem::temp_directory_path();
    }

    std::filesystem::path working_folder_;
    temporary_directory folder_;
};

class figures : public testing::Environment
{
public:
    void TearDown() override
    {
        std::cout << failures_tried << " failures in " << cases_tried << " cases" << std::endl;
    }
};

const testing::Environment *const printed_figures = testing::AddGlobalTestEnvironment(new figures);

} // namespace

TEST_P(FailingCalls, GiveWhatIsDocumentedAndLoseNothing)
{
    for_every_failure(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Of, FailingCalls, testing::ValuesIn(all_cases()),
                         [](const auto &instance) { return name_of(instance.param); });
