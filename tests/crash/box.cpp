// Reads and writes the folder of a box, reads what the box holds, and compares that with what was
// given to it.
#include "crash/box.hpp"

#include <cmath>
#include <filesystem>
#include <sstream>
#include <unistd.h>

#include <vesk/error.h>
#include <vesk/vesk_scan.h>

#include "common/temporary_directory.hpp"

namespace fs = std::filesystem;

// ---- What is in a folder ----------------------------------------------------------------------

std::string fast_folder()
{
    const char *memory = "/dev/shm";
    return access(memory, W_OK) == 0 ? memory : fs::temp_directory_path().string();
}

std::shared_ptr<const std::string> shared_bytes(std::string bytes)
{
    return std::make_shared<const std::string>(std::move(bytes));
}

folder_content read_folder(const folder_content &before)
{
    folder_content content;
    for (const auto &file : fs::directory_iterator(".")) {
        const std::string name = file.path().filename();
        std::string bytes = read_file(name);
        const auto known = before.find(name);
        content[name] = known != before.end() && *known->second == bytes
                            ? known->second
                            : shared_bytes(std::move(bytes));
    }
    return content;
}

void write_folder(const folder_content &content)
{
    for (const auto &file : fs::directory_iterator(".")) {
        fs::remove_all(file.path());
    }
    for (const auto &[name, bytes] : content) {
        write_file(name, *bytes);
    }
}

// ---- What was recorded ------------------------------------------------------------------------

bool entry::same_readings(const entry &other) const
{
    if (readings.size() != other.readings.size()) {
        return false;
    }
    for (std::size_t i = 0; i < readings.size(); ++i) {
        if (readings[i].sensor != other.readings[i].sensor ||
            readings[i].value != other.readings[i].value) {
            return false;
        }
    }
    return true;
}

// Small whole numbers, of which any sum is exact.
std::vector<reading> readings_of(int i, int width)
{
    std::vector<reading> readings = {{"first", 1.0 * i}};
    if (width == steady) {
        return readings;
    }
    if (i / 3 % 2 != 0) {
        readings.push_back({"second", 2.0 * i});
    }
    for (int k = 0; k < width; ++k) {
        readings.push_back({"wide." + std::to_string(k), 1.0 * (i * 31 + k * 17) / 64});
    }
    if (i / 7 % 2 != 0) {
        readings.push_back({"last", 0.0 - i});
    }
    return readings;
}

entry vector_entry(int i, int width)
{
    entry one;
    one.number = i;
    one.readings = readings_of(i, width);
    return one;
}

entry event_entry(int i, int which)
{
    entry one;
    one.is_event = true;
    one.number = i;
    one.type = static_cast<uint32_t>(which % 5 + 1);
    one.text = "event " + std::to_string(which);
    return one;
}

int write_entry(vesk *recorder, const entry &one)
{
    if (one.is_event) {
        const owned_event event = make_event(one.type, 1000 + one.number, one.text);
        return vesk_write_tagged_event(recorder, event.get());
    }
    return vesk_write_telemetry_vector(recorder,
                                       make_vector(1000 + one.number, one.readings).get());
}

// ---- What a box holds -------------------------------------------------------------------------

static int _number_at(const timestamp &t)
{
    return static_cast<int>(t.tv.tv_sec - 1000);
}

static std::string _sensor_name(const vesk_cb_record_sensor_names *names, uint32_t i)
{
    return sensor_array_get_sensors(names->sensors)[i]->canonical->name;
}

static interval_found _take_interval(const vesk_scan_item &item)
{
    interval_found found;
    const vesk_hb_record_sensor_values &interval = *item.interval;
    found.first = _number_at(interval.start);
    found.last = _number_at(interval.end);
    for (uint32_t i = 0; i < vesk_hb_record_sensor_values_get_number_hist_values(&interval); ++i) {
        const hist_value &summary = interval.hvalues[i];
        found.sensors[_sensor_name(item.names, i)] = {summary.count, summary.sum};
    }
    found.events[1] = interval.events.n_type1_events;
    found.events[2] = interval.events.n_type2_events;
    found.events[3] = interval.events.n_type3_events;
    found.events[4] = interval.events.n_type4_events;
    found.events[5] = interval.events.n_type5_events;
    return found;
}

static entry _take_entry(const vesk_scan_item &item)
{
    entry found;
    if (item.event != nullptr) {
        found.is_event = true;
        found.number = _number_at(item.event->timestamp);
        found.type = item.event->type;
        found.text = item.event->text;
        return found;
    }
    found.number = _number_at(item.values->timestamp);
    for (uint32_t i = 0; i < vesk_cb_record_sensor_values_get_number_values(item.values); ++i) {
        found.readings.push_back(
            {item.names != nullptr ? _sensor_name(item.names, i) : "?",
             static_cast<double>(vesk_cb_record_sensor_values_get_values(item.values)[i])});
    }
    return found;
}

static int _take_item(const vesk_scan_item *item, void *context)
{
    auto *found = static_cast<box_found *>(context);
    if (item->error != 0) {
        found->complaint += "an item of kind " + std::to_string(item->kind) + " at " +
                            std::to_string(item->offset) + " gives " + std::to_string(item->error) +
                            "\n";
    } else if (item->interval != nullptr) {
        found->intervals.push_back(_take_interval(*item));
    } else if (item->event != nullptr || item->values != nullptr) {
        found->samples_and_events.push_back(_take_entry(*item));
    }
    return 0;
}

static int _take_file(const vesk_scan_file *file, void *context)
{
    auto *found = static_cast<box_found *>(context);
    if (file->role == VESK_SCAN_ORPHAN) {
        return 0;
    }
    const int result =
        file->missing != 0 ? QE_ERROR_OPEN : vesk_scan_buffer(file->filename, _take_item, context);
    if (result != 0) {
        found->complaint += std::string(file->filename) + " gives " + std::to_string(result) + "\n";
    }
    return 0;
}

box_found look_into_box()
{
    box_found found;
    vesk_state_summary summary;
    const int state = vesk_scan_state("r.state", &summary);
    vesk_state_summary_destruct(&summary);
    if (state != 0) {
        found.complaint = "the state file gives " + std::to_string(state) + "\n";
    }
    const int result = vesk_scan_files("r", _take_file, &found);
    if (result != 0) {
        found.complaint += "the folder gives " + std::to_string(result) + "\n";
    }
    return found;
}

// ---- Comparing --------------------------------------------------------------------------------

static std::string _describe(const entry &one)
{
    std::ostringstream text;
    text << (one.is_event ? "event behind " : "vector ") << one.number;
    if (one.is_event) {
        text << " (" << one.type << ", " << one.text << ")";
    }
    for (const reading &r : one.readings) {
        text << " " << r.sensor << "=" << r.value;
        if (text.tellp() > 120) {
            text << " ...";
            break;
        }
    }
    return text.str();
}

// The vectors of the history and the events among them, which must be summarised just so.
static std::string _compare_history(const entries &summarised,
                                    const std::vector<interval_found> &in, const box_sizes &sizes)
{
    std::ostringstream complaint;
    uint32_t events_given[6] = {};
    uint32_t vectors = 0;
    std::size_t place = 0;
    for (const interval_found &one : in) {
        std::map<std::string, std::pair<uint32_t, float>> expected;
        for (; place < summarised.size() && summarised[place].number <= one.last; ++place) {
            const entry &given = summarised[place];
            if (given.is_event) {
                continue;
            }
            if (given.number < one.first) {
                complaint << _describe(given) << " is in no interval\n";
            }
            for (const reading &r : given.readings) {
                auto &[count, sum] = expected[r.sensor];
                ++count;
                sum += static_cast<float>(r.value);
            }
        }
        if (expected != one.sensors) {
            complaint << "the interval from " << one.first << " to " << one.last << " has ";
            for (const auto &[name, summary] : one.sensors) {
                complaint << name << ": " << summary.first << " " << summary.second << ", ";
            }
            complaint << "not ";
            for (const auto &[name, summary] : expected) {
                complaint << name << ": " << summary.first << " " << summary.second << ", ";
            }
            complaint << "\n";
        }
    }
    // Events behind the last vector of a buffer are in no interval.
    for (const entry &one : summarised) {
        vectors += one.is_event ? 0 : 1;
        if (one.is_event && vectors % sizes.samples != 0) {
            ++events_given[one.type];
        }
    }
    for (int type = 1; type <= 5; ++type) {
        uint32_t counted = 0;
        for (const interval_found &one : in) {
            counted += one.events[type];
        }
        if (counted != events_given[type]) {
            complaint << counted << " events of type " << type << ", not " << events_given[type]
                      << "\n";
        }
    }
    return complaint.str();
}

std::string compare_box(entries *given, const box_sizes &sizes)
{
    const box_found found = look_into_box();
    std::ostringstream complaint;
    complaint << found.complaint;
    const int summarised_to = found.intervals.empty() ? 0 : found.intervals.back().last;

    entries kept;
    entries summarised;
    std::size_t place = 0; // among what was found in current buffers
    bool in_history = true;
    for (entry &one : *given) {
        // Events behind the last vector of the history belong to its last buffer, too.
        in_history = in_history && one.number <= summarised_to;
        if (in_history) {
            if (one.acknowledged) {
                summarised.push_back(one);
                kept.push_back(one);
            }
            continue;
        }
        if (place < found.samples_and_events.size() && found.samples_and_events[place] == one) {
            ++place;
            one.acknowledged = true;
            kept.push_back(one);
        } else if (one.acknowledged) {
            complaint << "missing: " << _describe(one);
            if (place < found.samples_and_events.size()) {
                complaint << "; there is " << _describe(found.samples_and_events[place]);
            }
            complaint << "\n";
            break;
        }
    }
    if (complaint.str().empty() && place < found.samples_and_events.size()) {
        complaint << "too much: " << _describe(found.samples_and_events[place]) << "\n";
    }
    complaint << _compare_history(summarised, found.intervals, sizes);
    *given = kept;
    return complaint.str();
}

std::string go_on(entries *given, int from, int n, int width)
{
    qe_set_last_error(0);
    const owned_recorder recorder(vesk_open("r"));
    if (!recorder || qe_get_last_error() != 0) {
        return "opening gives " + std::to_string(qe_get_last_error()) + "\n";
    }
    for (int i = from; i < from + n; ++i) {
        entries now = {vector_entry(i, width)};
        if (i % 3 == 0) {
            now.push_back(event_entry(i, i));
        }
        for (entry &one : now) {
            const int result = write_entry(recorder.get(), one);
            if (result != 0) {
                return "then " + _describe(one) + " gives " + std::to_string(result) + "\n";
            }
            one.acknowledged = true;
            given->push_back(one);
        }
    }
    return "";
}
