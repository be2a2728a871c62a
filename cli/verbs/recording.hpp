// A recording of this machine into a box: samples on time, events between them, until a signal or
// a limit ends it.
#ifndef VESK_CLI_VERBS_RECORDING_HPP
#define VESK_CLI_VERBS_RECORDING_HPP

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "box/box_writer.hpp"
#include "box/event_intake.hpp"
#include "box/limited_events.hpp"
#include "box/recording_log.hpp"
#include "box/tier_recorder.hpp"
#include "box/waiting_events.hpp"
#include "machine/recording_events.hpp"
#include "machine/sample_writer.hpp"
#include "machine/sampler.hpp"
#include "process/service_manager.hpp"
#include "process/stop_request.hpp"
#include "process/terminal.hpp"
#include "push/paced_push.hpp"
#include "verbs/record_options.hpp"
#include "verbs/size_plan.hpp"

namespace cli
{

class recording
{
public:
    // Opens the box and its tiers, or makes them as @p plan says. @p read_options reads the options
    // again when a reload is asked for.
    recording(const record_options &options, const record_settings &settings,
              const recording_plan &plan, std::function<record_options()> read_options);

    void run();

private:
    void begin();
    void take_samples();
    std::optional<int64_t> wait_for(int64_t tick);
    void take(readings &found);
    void finish();
    void reload();
    void change(const record_options &options);
    void look_at_program();
    void prepare_push();
    void look_at_push();
    void work_ahead(double rest);
    void wait(double seconds);

    std::string words_about_size() const;
    std::string status_words() const;
    void log(const std::string &text) const;
    void note_late(uint64_t missed);
    void note_kernel_problem();

    std::string base_;
    record_options options_;
    record_settings settings_;
    std::function<record_options()> read_options_;
    service_manager manager_;
    stop_request stop_;
    box_writer box_;
    recording_log past_;
    limited_events limited_;
    waiting_events events_;
    recording_events own_;
    std::optional<sampler> machine_;
    std::optional<program_source> program_;
    std::optional<paced_push> push_;
    event_intake intake_;
    sample_writer samples_;
    std::vector<wanted_tier> wanted_tiers_;
    std::optional<tier_recorders> tiers_;
    snapshot before_;
    status_line status_;
    bool noted_late_ = false;
};

} // namespace cli

#endif
