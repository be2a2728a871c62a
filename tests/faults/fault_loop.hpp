// Walks a function through its failures: the first call of a kind fails, the second, the third ...
// until all that the function makes have failed once, each time for that moment only and then again
// from that moment on for ever. After each failure the outcome must be one that the case lists, no
// memory and no descriptor may be lost, and the files must be good.
#ifndef VESK_TESTS_FAULTS_FAULT_LOOP_HPP
#define VESK_TESTS_FAULTS_FAULT_LOOP_HPP

#include <array>
#include <functional>
#include <initializer_list>
#include <map>
#include <ostream>
#include <set>
#include <string.h>
#include <string>
#include <vector>

#include <vesk/error.h>

#include "common/failing_calls.hpp"

// What came of a call: "ok"; a code such as "-22", returned or left in the last-error cell; "null"
// without a code; "none" where bytes are counted and there are none; or the text of the
// precondition that ended the process.
using outcome = std::string;

// The outcomes of a call in which a call of that kind failed. Each of them occurs, and no other.
// What is not listed is not called.
using expectations = std::map<call_kind, std::set<outcome>>;

inline expectations operator+(expectations first, const expectations &second)
{
    first.insert(second.begin(), second.end());
    return first;
}

// Nothing that could fail is called at all.
inline const expectations nothing_fails;
inline const expectations no_memory = {{call_kind::allocation, {"-22"}}};
// Through a raw writer.
inline const expectations disk_full = {
    {call_kind::write, {"-41"}},
    {call_kind::torn_write, {"-41"}},
    {call_kind::flush, {"-41"}},
};

// One failure, and the call that meets it.
class fault
{
public:
    fault() = default;
    fault(call_kind kind, int n, failing_call::duration how_long)
        : kind_(kind), n_(n), how_long_(how_long)
    {
    }

    // Makes the call under test; the failure is gone when it returns.
    template <typename Call>
    auto operator()(Call call)
    {
        qe_set_last_error(0);
        const failing_call failing(kind_, n_, how_long_);
        const witness watching = {this};
        return call();
    }

    // ---- Usual calls --------------------------------------------------------------------------

    // A call that returns a count or a code.
    template <typename Call>
    outcome returns(Call call)
    {
        return code((*this)(call));
    }
    // A call that returns nothing.
    template <typename Call>
    outcome does(Call call)
    {
        (*this)(call);
        return "ok";
    }
    // A call that makes an object, or leaves a code in the cell.
    template <typename T, typename Create>
    outcome creates(void (*destroy)(T **), Create create)
    {
        T *made = (*this)(create);
        if (made == nullptr) {
            return cell();
        }
        const outcome left = success();
        destroy(&made);
        return left;
    }
    // The same, for memory that free() takes.
    template <typename Allocate>
    outcome allocates(Allocate allocate)
    {
        auto *memory = (*this)(allocate);
        if (memory == nullptr) {
            return cell();
        }
        free(memory);
        return success();
    }
    // A call that initialises an object, of which a failure leaves nothing to destruct.
    template <typename T, typename Init>
    outcome inits(void (*destruct)(T *), Init init)
    {
        T object;
        memset(static_cast<void *>(&object), 0x5A, sizeof object);
        const int result = (*this)([&] { return init(&object); });
        if (result >= 0) {
            destruct(&object);
        }
        return code(result);
    }

    // ---- Outcomes -----------------------------------------------------------------------------

    static outcome code(int result) { return result < 0 ? std::to_string(result) : "ok"; }
    // Of a call that returned null.
    static outcome cell()
    {
        return qe_get_last_error() < 0 ? std::to_string(qe_get_last_error()) : "null";
    }
    // Of a call that returned an object: success leaves the cell alone.
    static outcome success() { return qe_get_last_error() == 0 ? "ok" : "ok, but " + cell(); }
    // Of a call that returns how many bytes it read or wrote, or a code.
    static outcome bytes(int result) { return result == 0 ? "none" : code(result); }

    // ---- What is known about the failure ------------------------------------------------------

    call_kind kind() const { return kind_; }
    int n() const { return n_; }
    bool for_ever() const { return how_long_ == failing_call::for_ever; }
    // Whether nothing is to fail: calls are counted.
    bool none() const { return n_ == 0; }

    // Says that a call loses memory, or keeps files open, by design. LeakSanitizer must not see it:
    // the case has to be an isolated one.
    void loses(long blocks, long files = 0)
    {
        lost_blocks_ = blocks;
        lost_files_ = files;
    }
    long lost_blocks() const { return lost_blocks_; }
    long lost_files() const { return lost_files_; }

    bool happened() const { return happened_; }
    const std::array<int, call_kinds> &counts() const { return counts_; }
    // Fills in what another process saw.
    void note(bool happened, const std::array<int, call_kinds> &counts)
    {
        happened_ = happened;
        counts_ = counts;
    }

private:
    // Looks at the shim while the failure is still there.
    struct witness {
        fault *seen_by;
        ~witness()
        {
            std::array<int, call_kinds> counts = {};
            for (int kind = 0; kind < call_kinds; ++kind) {
                counts[static_cast<size_t>(kind)] =
                    failing_call::count(static_cast<call_kind>(kind));
            }
            seen_by->note(failing_call::happened(), counts);
        }
    };

    call_kind kind_ = call_kind::allocation;
    int n_ = 0;
    failing_call::duration how_long_ = failing_call::once;
    bool happened_ = false;
    std::array<int, call_kinds> counts_ = {};
    long lost_blocks_ = 0;
    long lost_files_ = 0;
};

// A function in a situation, and what its failures come to. The working folder is a temporary one.
struct fault_case {
    std::string function;
    std::string situation; // to tell the cases of one function apart
    expectations expected;
    // Brings about the situation, makes the call and looks at what it left. Runs in a process of
    // its own where a precondition may end it.
    std::function<outcome(fault &)> run;
    // Before and after that, always in this process.
    std::function<void()> prepare = [] {};
    std::function<void(const fault &, const outcome &)> check = [](const fault &, const outcome &) {
    };
    // Each run needs a process of its own, because it changes something for good.
    bool isolated = false;
    // What is called, but tried elsewhere.
    std::set<call_kind> left_out = {};
};

void for_every_failure(const fault_case &tried);
std::string name_of(const fault_case &tried);
// For messages of tests.
void PrintTo(const fault_case &tried, std::ostream *out);

// The tables, one for each folder of the library.
// The cases of several tables, one after the other.
inline std::vector<fault_case> joined(std::initializer_list<std::vector<fault_case>> tables)
{
    std::vector<fault_case> all;
    for (const auto &table : tables) {
        all.insert(all.end(), table.begin(), table.end());
    }
    return all;
}

std::vector<fault_case> support_cases();
std::vector<fault_case> io_cases();
std::vector<fault_case> model_cases();
std::vector<fault_case> matrix_cases();
std::vector<fault_case> text_cases();
std::vector<fault_case> buffer_record_cases();
std::vector<fault_case> buffer_cases();
std::vector<fault_case> recorder_cases();
std::vector<fault_case> recovery_cases();

std::vector<fault_case> all_cases();

#endif
