// What all texts with samples have in common, whatever their form: each line names sensors or holds
// a sample of those that were named last.
#ifndef VESK_CLI_TEXT_SAMPLE_PARSER_HPP
#define VESK_CLI_TEXT_SAMPLE_PARSER_HPP

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace cli
{

class sample_parser
{
public:
    enum class line_kind { blank, header, values };

    sample_parser() = default;
    sample_parser(const sample_parser &) = delete;
    sample_parser &operator=(const sample_parser &) = delete;
    virtual ~sample_parser() = default;

    // Throws bad_text with the reason when the line is refused; what was read before stays.
    virtual line_kind parse(std::string_view line) = 0;

    // The names of the latest header.
    const std::vector<std::string> &sensors() const { return sensors_; }
    // The latest line of values, one for each sensor.
    int64_t time() const { return time_; }
    std::span<const float> values() const { return values_; }

protected:
    // Takes the names of a header. Throws bad_text for those that no box can hold.
    void set_sensors(std::vector<std::string> names);
    void set_time(int64_t time) { time_ = time; }
    void begin_values() { values_.clear(); }
    void add_value(float value) { values_.push_back(value); }

private:
    std::vector<std::string> sensors_;
    std::vector<float> values_;
    int64_t time_ = 0;
};

// A name as a message may hold it: its beginning, printable.
std::string shortened_name(std::string_view name);

} // namespace cli

#endif
