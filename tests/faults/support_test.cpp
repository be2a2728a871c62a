// Memory, configuration and debugging, with what each function gives when a call fails.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <vesk/config.h>
#include <vesk/debug.h>
#include <vesk/debug_matrix.h>
#include <vesk/memory.h>

#include "common/matrices.hpp"
#include "common/temporary_directory.hpp"
#include "faults/fault_loop.hpp"
#include "support/owner.hpp"

namespace
{

using owned_config = owned<config, config_destroy>;

constexpr const char *lines = "# comment\nsensors a b\nsensors c\nrate 10\n";

owned_config read_config()
{
    write_file("config", lines);
    return owned_config(config_create_from_file("config"));
}

// Adds a value, which is there entirely or not at all.
outcome adds_value(fault &f, const char *key)
{
    const owned_config c = read_config();
    const auto count = [&] {
        uint32_t n = 0;
        free(config_get_values_for_key(c.get(), key, &n));
        return n;
    };
    const uint32_t before = count();
    const outcome found =
        f.returns([&] { return config_add_value_for_key(c.get(), key, "added"); });
    EXPECT_EQ(found == "ok" ? before + 1 : before, count());
    return found;
}

// A call that prints. What it prints is kept out of the test's own output.
template <typename Call>
outcome prints(fault &f, Call call)
{
    (void)fflush(stdout);
    const int output = dup(STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY);
    (void)dup2(nowhere, STDOUT_FILENO);
    const outcome found = f.does(call);
    (void)fflush(stdout);
    (void)dup2(output, STDOUT_FILENO);
    (void)close(output);
    (void)close(nowhere);
    return found;
}

// The log is opened once a process and stays open.
fault_case seeding_case(const std::string &function, void (*seed)())
{
    return {.function = function,
            .situation = "",
            .expected = {{call_kind::open, {"fp != ((void *)0)"}}, {call_kind::write, {"ok"}}},
            .run =
                [=](fault &f) {
                    const outcome found = prints(f, seed);
                    f.loses(0, 1);
                    return found;
                },
            .isolated = true};
}

// Memory from a wrapper of the allocator, which leaves the cell alone.
const expectations plain_null = {{call_kind::allocation, {"null"}}};

std::vector<fault_case> memory_cases()
{
    return {
        {"_qe_malloc", "", plain_null,
         [](fault &f) { return f.allocates([] { return _qe_malloc(9); }); }},
        {"_qe_calloc", "", plain_null,
         [](fault &f) { return f.allocates([] { return _qe_calloc(3, 3); }); }},
        {"_qe_strdup", "", plain_null,
         [](fault &f) { return f.allocates([] { return _qe_strdup("text"); }); }},
        {"qe_heapify",
         "",
         {{call_kind::allocation, {"copy != ((void *)0)"}}},
         [](fault &f) { return f.allocates([] { return qe_heapify("text", 5); }); }},

        // What is printed or logged may get lost without a word.
        seeding_case("_qe_srand", [] { _qe_srand(7, "file", 1); }),
        seeding_case("_qe_srand_clock", [] { _qe_srand_clock("file", 1); }),
        {"_qe_debug_matrix_print",
         "",
         {{call_kind::write, {"ok"}}},
         [](fault &f) {
             const owned_matrix m = make_matrix({{1, 2}, {3, 4}});
             return prints(f, [&] { _qe_debug_matrix_print(m.get(), "m", "file", 1); });
         }},
        {"_qe_debug_telemetry_matrix_print",
         "",
         {{call_kind::allocation, {"stdout_writer != ((void *)0)", "ok"}},
          {call_kind::write, {"ok"}},
          {call_kind::flush, {"ok"}}},
         [](fault &f) {
             const owned_matrix m = make_telemetry({{1}, {2}}, {"a"}, {1000, 1001});
             return prints(f, [&] { _qe_debug_telemetry_matrix_print(m.get(), "m", "file", 1); });
         }},
    };
}

std::vector<fault_case> config_cases()
{
    return {
        {"config_create", "", no_memory,
         [](fault &f) { return f.creates(config_destroy, config_create); }},
        {"config_create_from_file", "",
         no_memory + expectations{{call_kind::open, {"-40"}},
                                  {call_kind::read, {"feof (fp)"}},
                                  {call_kind::close, {"ok"}}},
         [](fault &f) {
             write_file("config", lines);
             return f.creates(config_destroy, [] { return config_create_from_file("config"); });
         }},
        {"config_init_from_file", "",
         no_memory + expectations{{call_kind::open, {"-40"}},
                                  {call_kind::read, {"feof (fp)"}},
                                  {call_kind::close, {"ok"}}},
         [](fault &f) {
             write_file("config", lines);
             return f.inits<config>(config_destruct,
                                    [](config *c) { return config_init_from_file(c, "config"); });
         }},
        {"config_add_value_for_key", "new_key", no_memory,
         [](fault &f) { return adds_value(f, "new"); }},
        {"config_add_value_for_key", "known_key", no_memory,
         [](fault &f) { return adds_value(f, "sensors"); }},
        {"config_get_values_for_key", "", no_memory,
         [](fault &f) {
             const owned_config c = read_config();
             uint32_t n = 9;
             const outcome found =
                 f.allocates([&] { return config_get_values_for_key(c.get(), "sensors", &n); });
             EXPECT_EQ(found == "ok" ? 2U : 0U, n);
             return found;
         }},
        {"config_split_multiword_value", "", no_memory,
         [](fault &f) {
             char value[] = "a b  c";
             uint32_t n = 9;
             const outcome found =
                 f.allocates([&] { return config_split_multiword_value(value, &n); });
             EXPECT_EQ(found == "ok" ? 3U : 0U, n);
             return found;
         }},
    };
}

} // namespace

std::vector<fault_case> support_cases()
{
    return joined({memory_cases(), config_cases()});
}
