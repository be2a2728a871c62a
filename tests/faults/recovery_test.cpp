// Scanning, recovering and starting boxes, with every call that can fail.
#include <vesk/vesk_prepare.h>

#include "faults/boxes.hpp"

namespace
{

// ---- Scanning ---------------------------------------------------------------------------------

// Scanning changes nothing, and says that it could not see all.
outcome scans(fault &f, const std::function<int()> &scan)
{
    const box_content before = read_box();
    const outcome found = f.returns(scan);
    EXPECT_EQ(before, read_box());
    return found;
}

int take_item(const vesk_scan_item *, void *)
{
    return 0;
}

int take_file(const vesk_scan_file *, void *)
{
    return 0;
}

const expectations scanning = {
    {call_kind::allocation, {"-22"}}, {call_kind::zlib, {"-22"}}, {call_kind::open, {"-40"}},
    {call_kind::read, {"-41"}},       {call_kind::close, {"ok"}},
};

void add_scans(std::vector<fault_case> *table)
{
    for (const char *name : {"r.5.cbuf.z", "r.4.hbuf.z"}) {
        table->push_back({"vesk_scan_buffer",
                          name == std::string("r.5.cbuf.z") ? "current" : "history", scanning,
                          [=](fault &f) {
                              return scans(
                                  f, [=] { return vesk_scan_buffer(name, take_item, nullptr); });
                          },
                          box_with(14)});
    }
    table->push_back({"vesk_scan_bytes", "", no_memory + expectations{{call_kind::zlib, {"-22"}}},
                      [](fault &f) {
                          const std::string file = read_file("r.5.cbuf.z");
                          return scans(f, [&] {
                              return vesk_scan_bytes(
                                  reinterpret_cast<const unsigned char *>(file.data()), file.size(),
                                  VESK_BUFFER_TYPE_CURRENT, take_item, nullptr);
                          });
                      },
                      box_with(14)});
    table->push_back({"vesk_scan_state", "",
                      no_memory + expectations{{call_kind::open, {"-40"}},
                                               {call_kind::read, {"-41"}},
                                               {call_kind::close, {"ok"}}},
                      [](fault &f) {
                          return scans(f, [] {
                              vesk_state_summary summary;
                              const int result = vesk_scan_state("r.state", &summary);
                              vesk_state_summary_destruct(&summary);
                              return result;
                          });
                      },
                      box_with(14)});
    table->push_back(
        {"vesk_scan_files", "",
         no_memory + expectations{{call_kind::open, {"-41", "ok"}},
                                  {call_kind::read, {"-41", "ok"}},
                                  {call_kind::close, {"ok"}}},
         [](fault &f) { return scans(f, [] { return vesk_scan_files("r", take_file, nullptr); }); },
         [] {
             box_with(14)();
             write_file("r.99.cbuf.z", "an orphan");
         }});
}

// A box that was killed in many ways at once: a torn tail, a bare event, a history that lost its
// end, half a state file, what an unfinished rotation and an unfinished recovery left.
void make_wreck()
{
    make_box(14);
    write_file("r.5.cbuf.z", read_file("r.5.cbuf.z") +
                                 compressed_stream(stored_event_body(2, 1014, "bare")) +
                                 compressed_stream(stored_values_record(1015, {15})) + "torn");
    write_file("r.3.cbuf.z", read_file("r.3.cbuf.z") + "torn");
    fs::resize_file("r.4.hbuf.z", fs::file_size("r.4.hbuf.z") - 3);
    write_file("r.6.hbuf.z", "");
    write_file("r.state.new", "x");
    fs::resize_file("r.state", 40);
}

outcome recovers(fault &f)
{
    return f.returns([] { return vesk_recover("r", 4, 2, nullptr); });
}

// Whatever failed, recovering once more brings back all that can be.
void expect_recoverable(const fault &, const outcome &)
{
    vesk_recover_report report;
    EXPECT_EQ(0, vesk_recover("r", 4, 2, &report));
    EXPECT_EQ(7U, report.samples_kept);
    EXPECT_EQ(1U, report.events_kept);
    qe_set_last_error(0);
    const owned_recorder recorder(vesk_open("r"));
    EXPECT_EQ(0, qe_get_last_error());
    for (int i = 16; i < 30; ++i) {
        EXPECT_EQ(0, write(recorder.get(), i)) << i;
    }
}

void add_recoveries(std::vector<fault_case> *table)
{
    table->push_back({"vesk_recover", "",
                      no_memory + expectations{{call_kind::zlib, {"-22"}},
                                               {call_kind::open, {"-40", "-41"}},
                                               {call_kind::read, {"-41"}},
                                               {call_kind::write, {"-41"}},
                                               {call_kind::torn_write, {"-41"}},
                                               {call_kind::flush, {"-41"}},
                                               {call_kind::close, {"ok"}},
                                               {call_kind::remove, {"-41"}},
                                               {call_kind::rename, {"-41"}},
                                               {call_kind::sync, {"-41"}},
                                               {call_kind::truncate, {"-41"}}},
                      recovers, make_wreck, expect_recoverable});
    table->push_back({"vesk_recover_plan", "",
                      no_memory + expectations{{call_kind::zlib, {"-22"}},
                                               {call_kind::open, {"-41"}},
                                               {call_kind::read, {"-41"}},
                                               {call_kind::close, {"ok"}}},
                      [](fault &f) {
                          const box_content before = read_box();
                          const outcome found = f.returns([] {
                              return vesk_recover_plan("r", 4, 2, nullptr, nullptr, nullptr);
                          });
                          EXPECT_EQ(before, read_box());
                          return found;
                      },
                      make_wreck});
}

// ---- Recorders that are started ---------------------------------------------------------------

// Starting; whatever failed, nothing is lost and the next start goes on.
outcome starts(fault &f, int last)
{
    vesk *recorder = f([] { return vesk_start("r", 4, 2, nullptr); });
    if (recorder == nullptr) {
        return fault::cell();
    }
    EXPECT_EQ(0, vesk_settle(recorder));
    EXPECT_EQ(0, write(recorder, last + 1));
    vesk_close(&recorder);
    return "ok";
}

void expect_startable(int written)
{
    const owned_recorder recorder(vesk_start("r", 4, 2, nullptr));
    ASSERT_TRUE(recorder);
    nothing_is_lost(written);
    EXPECT_EQ(0, write(recorder.get(), written + 1));
}

outcome settles(fault &f)
{
    const owned_recorder recorder(vesk_start("r", 4, 2, nullptr));
    EXPECT_EQ(0, write(recorder.get(), full_hcc + 1));
    return f.returns([&] { return vesk_settle(recorder.get()); });
}

outcome prepares(fault &f)
{
    const owned_recorder recorder(vesk_start("r", 4, 2, nullptr));
    return f.returns([&] { return vesk_prepare(recorder.get(), 60000000, 0); });
}

void add_starts(std::vector<fault_case> *table)
{
    table->push_back(
        {"vesk_start",
         "new",
         {{call_kind::allocation, {"-22", "ok"}},
          {call_kind::open, {"-40", "-41", "ok"}},
          {call_kind::read, {"-41"}},
          {call_kind::write, {"-41", "ok"}},
          {call_kind::torn_write, {"-41", "ok"}},
          {call_kind::flush, {"-41", "ok"}},
          {call_kind::close, {"ok"}},
          {call_kind::rename, {"ok"}},
          {call_kind::sync, {"ok"}},
          {call_kind::truncate, {"-40"}}},
         [](fault &f) { return starts(f, 0); },
         remove_box,
         [](const fault &, const outcome &found) { expect_startable(found == "ok" ? 1 : 0); }});
    table->push_back({"vesk_start",
                      "over_a_box",
                      {{call_kind::allocation, {"-22", "ok", "-41"}},
                       {call_kind::zlib, {"-22", "-41"}},
                       {call_kind::open, {"-40", "-41", "ok"}},
                       {call_kind::read, {"-41"}},
                       {call_kind::write, {"ok"}},
                       {call_kind::torn_write, {"ok"}},
                       {call_kind::flush, {"ok"}},
                       {call_kind::close, {"ok"}},
                       {call_kind::rename, {"ok"}},
                       {call_kind::sync, {"ok"}}},
                      [](fault &f) { return starts(f, full_hcc); },
                      box_with(full_hcc),
                      [](const fault &, const outcome &found) {
                          expect_startable(found == "ok" ? full_hcc + 1 : full_hcc);
                      }});
    table->push_back({"vesk_create_new",
                      "",
                      {{call_kind::allocation, {"-22"}},
                       {call_kind::open, {"-40", "-41"}},
                       {call_kind::read, {"-41"}},
                       {call_kind::write, {"-41"}},
                       {call_kind::torn_write, {"-41"}},
                       {call_kind::flush, {"-41", "ok"}},
                       {call_kind::close, {"ok"}},
                       {call_kind::truncate, {"-40"}}},
                      [](fault &f) {
                          vesk *recorder = f([] { return vesk_create_new("r", 4, 2); });
                          if (recorder == nullptr) {
                              EXPECT_TRUE(box_files().empty());
                              return fault::cell();
                          }
                          vesk_close(&recorder);
                          return fault::success();
                      },
                      remove_box});
    table->push_back({"vesk_prepare",
                      "",
                      {{call_kind::allocation, {"-22", "-41", "-42", "ok"}},
                       {call_kind::zlib, {"-41", "-42"}},
                       {call_kind::open, {"-40"}},
                       {call_kind::read, {"-41"}},
                       {call_kind::write, {"-41"}},
                       {call_kind::torn_write, {"-41"}},
                       {call_kind::flush, {"-41", "ok"}},
                       {call_kind::close, {"ok"}},
                       {call_kind::sync, {"-41"}}},
                      prepares,
                      box_with(full_hcc),
                      [](const fault &, const outcome &) { expect_startable(full_hcc); }});
    table->push_back({"vesk_settle",
                      "",
                      {{call_kind::allocation, {"-22"}},
                       {call_kind::open, {"-40"}},
                       {call_kind::write, {"-41"}},
                       {call_kind::torn_write, {"-41"}},
                       {call_kind::flush, {"-41"}},
                       {call_kind::close, {"ok"}},
                       {call_kind::remove, {"-41"}},
                       {call_kind::rename, {"-41"}},
                       {call_kind::sync, {"-41"}}},
                      settles,
                      box_with(full_hcc),
                      [](const fault &, const outcome &) {
                          nothing_is_lost(full_hcc + 1);
                          expect_startable(full_hcc + 1);
                      }});
}

} // namespace

std::vector<fault_case> recovery_cases()
{
    std::vector<fault_case> table;
    add_scans(&table);
    add_recoveries(&table);
    add_starts(&table);
    return table;
}
