// The functions of a recorder and of its stages, with every call that can fail.
#include "faults/boxes.hpp"
#include "faults/streams.hpp"

namespace
{

// ---- Opening and closing ----------------------------------------------------------------------

outcome opens_box(fault &f)
{
    const box_content before = read_box();
    vesk *recorder = f([] { return vesk_open("r"); });
    const bool whole = qe_get_last_error() == 0;
    const outcome found = whole ? "ok" : fault::cell();
    EXPECT_TRUE(recorder != nullptr || !whole);
    if (recorder != nullptr) {
        close_any(recorder);
    }
    EXPECT_EQ(before, read_box());
    return recorder == nullptr || whole ? found : "in part, " + found;
}

void box_is_unchanged(const box_content &before)
{
    EXPECT_EQ(before, read_box());
}

// The state file after a box was made: whole, or it would have been a failure. A name of the stage
// is the exception: that it could not be written is not reported.
outcome creates_box(fault &f)
{
    vesk *recorder = f([] { return vesk_create("r", 4, 2); });
    if (recorder == nullptr) {
        return fault::cell();
    }
    const outcome found = fault::success();
    EXPECT_EQ(0, write(recorder, 1)) << "it can be used in any case";
    vesk_close(&recorder);
    nothing_is_lost(1);
    return found;
}

// ---- Writing ----------------------------------------------------------------------------------

// The next vector on a box of `last` ones.
outcome writes_next(fault &f, int last)
{
    owned_recorder recorder(vesk_open("r"));
    const owned_matrix vector = vector_number(last + 1);
    return f.returns([&] { return vesk_write_telemetry_vector(recorder.get(), vector.get()); });
}

// Whether a failure left a box that has to be repaired before it can be opened: its state file is
// cut, or its current buffer is empty or torn at its end.
bool is_cut_somewhere()
{
    vesk_state_summary summary;
    const bool cut_state = vesk_scan_state("r.state", &summary) != 0;
    bool cut_buffer = false;
    if (!cut_state) {
        const std::string open_buffer = read_file(summary.names[summary.num_names - 1]);
        const auto streams = split_zlib_streams(open_buffer);
        cut_buffer = streams.empty() || !streams.back().complete;
    }
    vesk_state_summary_destruct(&summary);
    return cut_state || cut_buffer;
}

void goes_on(int next)
{
    qe_set_last_error(0);
    const owned_recorder recorder(vesk_open("r"));
    ASSERT_TRUE(recorder);
    ASSERT_EQ(0, qe_get_last_error());
    for (int i = next; i <= next + 8; ++i) {
        ASSERT_EQ(0, write(recorder.get(), i)) << i;
    }
}

void check_next(int last, const fault &f, const outcome &found)
{
    if (f.none()) {
        return;
    }
    const int acknowledged = found == "ok" ? last + 1 : last;
    nothing_is_lost(acknowledged);
    // Files of every shape come from failures that last, too; the ones above suffice for those.
    if (!f.for_ever() && !is_cut_somewhere()) {
        goes_on(acknowledged + 1);
        nothing_is_lost(acknowledged + 9);
    }
}

outcome records_tagged_event(fault &f)
{
    const owned_recorder recorder(vesk_open("r"));
    const owned_event event = make_event(3, 1000, "text");
    return f.returns([&] { return vesk_write_tagged_event(recorder.get(), event.get()); });
}

fault_case writing_case(const std::string &situation, int last, const expectations &expected)
{
    return {.function = "vesk_write_telemetry_vector",
            .situation = situation,
            .expected = expected,
            .run = [=](fault &f) { return writes_next(f, last); },
            .prepare = box_with(last),
            .check = [=](const fault &f, const outcome &found) { check_next(last, f, found); }};
}

const expectations stream_writing = {
    {call_kind::zlib, {"zwriter->err == 0"}},
    {call_kind::write, {"-41"}},
    {call_kind::torn_write, {"-41"}},
    {call_kind::flush, {"-41"}},
};

// zlib failed: the stream is dead, and closing the buffer ends the process.
const outcome dead_stream = "zwriter->err == 0";
// Likewise a recorder that cannot save the state file after its first history.
const outcome unsaved_history = "*hbuf != ((void *)0)";
const outcome unreadable_buffer = "reader_eof (zreader->reader)";

// Moving on to another current buffer. A name in the state file that cannot be written is not told.
const expectations moving_on = {
    {call_kind::allocation, {"-22", dead_stream}},
    {call_kind::zlib, {dead_stream}},
    {call_kind::open, {"-40"}},
    {call_kind::write, {"-41", "ok"}},
    {call_kind::torn_write, {"-41", "ok"}},
    {call_kind::flush, {"-41", "ok"}},
    {call_kind::close, {"ok"}},
    {call_kind::truncate, {"-40"}},
};

// Summarising on the way. It does without the memory for columns.
const expectations making_history = {
    {call_kind::allocation, {"-22", "-41", dead_stream, "ok"}},
    {call_kind::zlib, {"-41", dead_stream}},
    {call_kind::open, {"-40"}},
    {call_kind::read, {unreadable_buffer}},
    {call_kind::write, {"-41", "ok"}},
    {call_kind::torn_write, {"-41", "ok"}},
    {call_kind::flush, {"-41", "ok"}},
    {call_kind::close, {"ok"}},
    {call_kind::remove, {"ok"}},
    {call_kind::truncate, {"-40"}},
};

expectations with(const outcome &also, const std::set<call_kind> &kinds, expectations expected)
{
    for (const call_kind kind : kinds) {
        expected[kind].insert(also);
    }
    return expected;
}

void add_writing(std::vector<fault_case> *table)
{
    table->push_back(writing_case(
        "first", 0, expectations{{call_kind::allocation, {"-22", dead_stream}}} + stream_writing));
    table->push_back(writing_case(
        "same_buffer", 2, expectations{{call_kind::allocation, {dead_stream}}} + stream_writing));
    table->push_back(writing_case("to_cc0", full_c00, moving_on));
    table->push_back(writing_case("to_ccc", full_cc0, moving_on));
    table->push_back(
        writing_case("to_hcc", full_ccc,
                     with(unsaved_history,
                          {call_kind::allocation, call_kind::open, call_kind::write,
                           call_kind::torn_write, call_kind::flush, call_kind::truncate},
                          making_history)));
    table->push_back(writing_case("hcc_to_hcc", full_hcc, making_history));
}

// ---- Stages -----------------------------------------------------------------------------------

template <typename Stage>
struct stage_functions {
    std::string name;
    std::vector<std::string> closed; // names of its full buffers
    Stage *(*create)();
    Stage *(*create_null)();
    void (*destroy)(Stage **);
    int (*write_vector)(Stage *, const matrix *);
    int (*write_event)(Stage *, const vesk_cb_record_event *);
    int (*write)(const Stage *, writer *);
    int (*read)(Stage *, reader *);
};

template <typename Stage>
class with_stage
{
public:
    explicit with_stage(const stage_functions<Stage> &functions)
        : functions_(functions), stage_(functions.create())
    {
    }
    with_stage(const with_stage &) = delete;
    with_stage &operator=(const with_stage &) = delete;
    ~with_stage()
    {
        if (stage_ != nullptr) {
            functions_.destroy(&stage_);
        }
    }
    Stage *&get() { return stage_; }

private:
    const stage_functions<Stage> &functions_;
    Stage *stage_;
};

template <typename Stage>
void add_stage(std::vector<fault_case> *table, const stage_functions<Stage> &functions)
{
    using stage = with_stage<Stage>;
    const std::string prefix = "vesk_zcf_state_" + functions.name;
    std::string form = "\1";
    for (const std::string &name : functions.closed) {
        form += stored_string(name);
    }
    form += stored_string("open");
    const std::vector<fault_case> cases = {
        {prefix + "_create", "",
         no_memory + expectations{{call_kind::open, {"-40"}}, {call_kind::truncate, {"-40"}}},
         [=](fault &f) { return f.creates(functions.destroy, functions.create); }},
        {prefix + "_create_null", "", no_memory,
         [=](fault &f) { return f.creates(functions.destroy, functions.create_null); }},
        {prefix + "_destroy",
         "",
         {{call_kind::allocation, {"ok"}},
          {call_kind::zlib, {"ok"}},
          {call_kind::write, {"ok"}},
          {call_kind::torn_write, {"ok"}},
          {call_kind::flush, {"ok"}},
          {call_kind::close, {"ok"}}},
         [=](fault &f) {
             stage live(functions);
             return f.does([&] { functions.destroy(&live.get()); });
         }},
        {prefix + "_write_telemetry_vector", "",
         expectations{{call_kind::allocation, {"-22", "zwriter->err == 0"}}} + stream_writing,
         [=](fault &f) {
             stage live(functions);
             const owned_matrix vector = vector_number(1);
             return f.returns([&] { return functions.write_vector(live.get(), vector.get()); });
         }},
        {prefix + "_write_event",
         "",
         {{call_kind::allocation, {"zwriter->err == 0"}},
          {call_kind::zlib, {"zwriter->err == 0"}},
          {call_kind::write, {"ok, but -41"}},
          {call_kind::torn_write, {"ok, but -41"}},
          {call_kind::flush, {"ok, but -41"}}},
         [=](fault &f) {
             stage live(functions);
             const owned_event event = make_event(3, 1000, "text");
             const outcome found =
                 f.returns([&] { return functions.write_event(live.get(), event.get()); });
             return found == "ok" ? fault::success() : found;
         }},
        {"binary_serializer_write_" + prefix,
         "",
         {{call_kind::write, {"-41", "none"}},
          {call_kind::torn_write, {"-41", "none"}},
          {call_kind::flush, {"-41", "none"}}},
         [=](fault &f) {
             stage live(functions);
             const owned_writer target = file_writer();
             return fault::bytes(f([&] { return functions.write(live.get(), target.get()); }));
         }},
        {"binary_serializer_read_" + prefix,
         "",
         {{call_kind::allocation, {"-22", "-41"}},
          {call_kind::zlib, {"-41"}},
          {call_kind::open, {"-40"}},
          {call_kind::read,
           {"none", "reader_eof (reader)", "nread != 0", "reader_eof (zreader->reader)"}}},
         [=](fault &f) {
             Stage *live = functions.create_null();
             const outcome found =
                 reads(f, form, [&](reader *source) { return functions.read(live, source); });
             functions.destroy(&live);
             return found;
         },
         [] {
             vesk_current_buffer *cbuf = vesk_current_buffer_create("open", 4);
             EXPECT_EQ(0, vesk_current_buffer_write_telemetry_vector(cbuf, vector_number(1).get()));
             vesk_current_buffer_close(&cbuf);
         }},
    };
    table->insert(table->end(), cases.begin(), cases.end());
}

void add_stages(std::vector<fault_case> *table)
{
    add_stage<vesk_zcf_state_c00>(table, {"c00",
                                          {},
                                          [] { return vesk_zcf_state_c00_create("open", 4); },
                                          vesk_zcf_state_c00_create_null,
                                          vesk_zcf_state_c00_destroy,
                                          vesk_zcf_state_c00_write_telemetry_vector,
                                          vesk_zcf_state_c00_write_event,
                                          binary_serializer_write_vesk_zcf_state_c00,
                                          binary_serializer_read_vesk_zcf_state_c00});
    add_stage<vesk_zcf_state_cc0>(table,
                                  {"cc0",
                                   {"full"},
                                   [] { return vesk_zcf_state_cc0_create("full", "open", 4); },
                                   vesk_zcf_state_cc0_create_null,
                                   vesk_zcf_state_cc0_destroy,
                                   vesk_zcf_state_cc0_write_telemetry_vector,
                                   vesk_zcf_state_cc0_write_event,
                                   binary_serializer_write_vesk_zcf_state_cc0,
                                   binary_serializer_read_vesk_zcf_state_cc0});
    add_stage<vesk_zcf_state_ccc>(
        table, {"ccc",
                {"oldest", "full"},
                [] { return vesk_zcf_state_ccc_create("oldest", "full", "open", 4); },
                vesk_zcf_state_ccc_create_null,
                vesk_zcf_state_ccc_destroy,
                vesk_zcf_state_ccc_write_telemetry_vector,
                vesk_zcf_state_ccc_write_event,
                binary_serializer_write_vesk_zcf_state_ccc,
                binary_serializer_read_vesk_zcf_state_ccc});
    add_stage<vesk_zcf_state_hcc>(
        table, {"hcc",
                {"history", "full"},
                [] { return vesk_zcf_state_hcc_create("history", "full", "open", 4); },
                vesk_zcf_state_hcc_create_null,
                vesk_zcf_state_hcc_destroy,
                vesk_zcf_state_hcc_write_telemetry_vector,
                vesk_zcf_state_hcc_write_event,
                binary_serializer_write_vesk_zcf_state_hcc,
                binary_serializer_read_vesk_zcf_state_hcc});
}

// ---- A whole life -----------------------------------------------------------------------------

// What a recorder does that is written to whatever happens, or with care: after a failure it is
// closed and opened again, until that does not succeed either.
enum class policy { stubborn, careful };

constexpr int life = 21;

// Tells which vectors were acknowledged, also when the process ends. The call itself is under test,
// so this must not go through the C library's streams.
class acknowledgements
{
public:
    acknowledgements() : fd_(open("acknowledged", O_WRONLY | O_CREAT | O_TRUNC, 0600)) {}
    acknowledgements(const acknowledgements &) = delete;
    acknowledgements &operator=(const acknowledgements &) = delete;
    ~acknowledgements() { (void)close(fd_); }
    void add(int i)
    {
        const auto byte = static_cast<char>(i);
        EXPECT_EQ(1, ::write(fd_, &byte, 1));
    }

private:
    int fd_;
};

// Creates a recorder, writes all vectors and closes it.
void live(policy how, const std::vector<owned_matrix> &vectors, acknowledgements *told)
{
    vesk *recorder = vesk_create("r", 4, 2);
    for (int i = 1; i <= life && recorder != nullptr; ++i) {
        const int written =
            vesk_write_telemetry_vector(recorder, vectors[static_cast<size_t>(i - 1)].get());
        if (written == 0) {
            told->add(i);
        } else if (how == policy::careful) {
            vesk_close(&recorder);
            qe_set_last_error(0);
            recorder = vesk_open("r");
            if (recorder != nullptr && qe_get_last_error() < 0) {
                close_any(recorder);
                recorder = nullptr;
            }
        }
    }
    if (recorder != nullptr) {
        vesk_close(&recorder);
    }
}

fault_case life_case(policy how, const expectations &expected)
{
    return {.function = "vesk_write_telemetry_vector",
            .situation = how == policy::stubborn ? "through_a_life" : "through_a_life_with_care",
            .expected = expected,
            .run =
                [=](fault &f) {
                    std::vector<owned_matrix> vectors;
                    for (int i = 1; i <= life; ++i) {
                        vectors.push_back(vector_number(i));
                    }
                    acknowledgements told;
                    return f.does([&] { live(how, vectors, &told); });
                },
            .prepare = remove_box,
            .check =
                [=](const fault &, const outcome &) {
                    const std::string told = read_file("acknowledged");
                    box_records().expect(std::set<int>(told.begin(), told.end()));
                },
            // The steps of a life are tried one by one.
            .left_out = {call_kind::allocation, call_kind::zlib, call_kind::read}};
}

void add_lives(std::vector<fault_case> *table)
{
    const std::set<call_kind> writing = {call_kind::write, call_kind::torn_write, call_kind::flush};
    const std::set<call_kind> opening = {call_kind::open, call_kind::truncate};
    expectations lives = {{call_kind::open, {"ok", unsaved_history}},
                          {call_kind::truncate, {"ok", unsaved_history}},
                          {call_kind::close, {"ok"}},
                          {call_kind::remove, {"ok"}}};
    for (const call_kind kind : writing) {
        lives[kind] = {"ok", unsaved_history};
    }
    table->push_back(
        life_case(policy::stubborn, with("vesk->cc0 != ((void *)0)", opening,
                                         with("vesk->ccc != ((void *)0)", opening, lives))));
    // A state file that is cut right behind the length of a name ends the process that opens it.
    table->push_back(life_case(policy::careful, with("nread != 0", writing, lives)));
}

} // namespace

std::vector<fault_case> recorder_cases()
{
    std::vector<fault_case> table = {
        {"vesk_create_null", "", no_memory,
         [](fault &f) { return f.creates(vesk_close, vesk_create_null); }},
        {"vesk_create", "",
         no_memory + expectations{{call_kind::open, {"-40"}},
                                  {call_kind::write, {"-41", "ok"}},
                                  {call_kind::torn_write, {"-41", "ok"}},
                                  {call_kind::flush, {"-41", "ok"}},
                                  {call_kind::close, {"ok"}},
                                  {call_kind::remove, {"ok"}},
                                  {call_kind::truncate, {"-40"}}},
         creates_box, remove_box},
        {"vesk_close",
         "new",
         {{call_kind::allocation, {"ok"}},
          {call_kind::zlib, {"ok"}},
          {call_kind::write, {"ok"}},
          {call_kind::torn_write, {"ok"}},
          {call_kind::flush, {"ok"}},
          {call_kind::close, {"ok"}}},
         [](fault &f) {
             vesk *recorder = vesk_create("r", 4, 2);
             return f.does([&] { vesk_close(&recorder); });
         },
         remove_box},
        {"vesk_close",
         "written",
         {{call_kind::flush, {"ok"}}, {call_kind::close, {"ok"}}},
         [](fault &f) {
             const box_content before = read_box();
             vesk *recorder = vesk_open("r");
             const outcome found = f.does([&] { vesk_close(&recorder); });
             box_is_unchanged(before);
             return found;
         },
         box_with(14)},
    };
    for (const int last : {2, 6, 10, 14}) {
        table.push_back({"vesk_open",
                         "with_" + std::to_string(last) + "_vectors",
                         {{call_kind::allocation, {"-22", "in part, -22", "in part, -41"}},
                          {call_kind::zlib, {"in part, -41"}},
                          {call_kind::open, {"-40", "in part, -40"}},
                          {call_kind::read,
                           {"-48", "in part, -48", "reader_eof (reader)", "nread != 0",
                            "reader_eof (zreader->reader)"}},
                          {call_kind::close, {"ok"}}},
                         opens_box,
                         box_with(last)});
    }
    add_writing(&table);
    table.push_back({"vesk_write_event",
                     "",
                     {{call_kind::allocation, {"zwriter->err == 0"}},
                      {call_kind::zlib, {"zwriter->err == 0"}},
                      {call_kind::write, {"ok, but -41"}},
                      {call_kind::torn_write, {"ok, but -41"}},
                      {call_kind::flush, {"ok, but -41"}}},
                     [](fault &f) {
                         const owned_recorder recorder(vesk_open("r"));
                         const owned_event event = make_event(3, 1000, "text");
                         const outcome found = f.returns(
                             [&] { return vesk_write_event(recorder.get(), event.get()); });
                         return found == "ok" ? fault::success() : found;
                     },
                     box_with(14),
                     [](const fault &, const outcome &) { nothing_is_lost(14); }});
    table.push_back(
        {"vesk_sync",
         "",
         {{call_kind::open, {"-40"}}, {call_kind::close, {"ok"}}, {call_kind::sync, {"-41"}}},
         [](fault &f) {
             const box_content before = read_box();
             const owned_recorder recorder(vesk_open("r"));
             const outcome found = f.returns([&] { return vesk_sync(recorder.get()); });
             box_is_unchanged(before);
             return found;
         },
         box_with(14)});
    table.push_back({"vesk_backup_state", "",
                     no_memory + expectations{{call_kind::open, {"-40"}},
                                              {call_kind::write, {"-41"}},
                                              {call_kind::torn_write, {"-41"}},
                                              {call_kind::flush, {"-41"}},
                                              {call_kind::close, {"ok"}},
                                              {call_kind::rename, {"-41"}},
                                              {call_kind::sync, {"-41"}}},
                     [](fault &f) {
                         const owned_recorder recorder(vesk_open("r"));
                         return f.returns([&] { return vesk_backup_state(recorder.get()); });
                     },
                     box_with(14),
                     [](const fault &, const outcome &found) {
                         // What is in place is whole, and nothing is left beside it.
                         if (fs::exists("r.state.bak")) {
                             // Behind the state stands the checksum.
                             EXPECT_EQ(
                                 read_file("r.state"),
                                 read_file("r.state.bak").substr(0, read_file("r.state").size()));
                             EXPECT_EQ(fs::file_size("r.state") + 8, fs::file_size("r.state.bak"));
                         }
                         EXPECT_TRUE(found != "ok" || fs::exists("r.state.bak"));
                         EXPECT_FALSE(fs::exists("r.state.bak.new"));
                     }});
    table.push_back({"vesk_check_vector", "", no_memory, [](fault &f) {
                         const owned_matrix vector = vector_number(1);
                         return f.returns([&] { return vesk_check_vector(vector.get()); });
                     }});
    table.push_back({"vesk_write_tagged_event",
                     "",
                     {{call_kind::allocation, {dead_stream}},
                      {call_kind::zlib, {dead_stream}},
                      {call_kind::write, {"-41"}},
                      {call_kind::torn_write, {"-41"}},
                      {call_kind::flush, {"-41"}}},
                     records_tagged_event,
                     box_with(14),
                     [](const fault &f, const outcome &found) {
                         nothing_is_lost(14);
                         if (found == "ok") {
                             goes_on(15);
                             nothing_is_lost(23);
                         }
                         EXPECT_TRUE(f.none() || found != "ok");
                     }});
    table.push_back({"binary_serializer_write_vesk",
                     "",
                     {{call_kind::write, {"-41", "ok"}},
                      {call_kind::torn_write, {"-41", "ok"}},
                      {call_kind::flush, {"-41", "ok"}}},
                     [](fault &f) {
                         const owned_recorder recorder(vesk_open("r"));
                         return writes(f, [&](writer *target) {
                             return binary_serializer_write_vesk(recorder.get(), target);
                         });
                     },
                     box_with(14)});
    table.push_back(
        {"binary_serializer_read_vesk",
         "",
         {{call_kind::allocation, {"-22", "-41"}},
          {call_kind::zlib, {"-41"}},
          {call_kind::open, {"-40"}},
          {call_kind::read,
           {"none", "-48", "reader_eof (reader)", "nread != 0", "reader_eof (zreader->reader)"}}},
         [](fault &f) {
             vesk *recorder = vesk_create_null();
             const outcome found = reads(f, read_file("r.state"), [&](reader *source) {
                 return binary_serializer_read_vesk(recorder, source);
             });
             close_any(recorder);
             return found;
         },
         box_with(14)});
    add_stages(&table);
    add_lives(&table);
    return table;
}
