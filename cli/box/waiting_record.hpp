// The form of the events that wait in a file, a sequence of records of one line and a text each:
//
//   vesk-event MARK CCCCCCCC TYPE SECONDS LENGTH\n
//   TEXT\n
//
// CCCCCCCC is the CRC-32 of all behind it and the blank that follows, in hexadecimal. MARK is
// changed in place: "wait"; four digits from the moment in which the event is being put into the
// box; "done" when it is there. The digits say how many events alike the box ended with before.
#ifndef VESK_CLI_BOX_WAITING_RECORD_HPP
#define VESK_CLI_BOX_WAITING_RECORD_HPP

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "box/event.hpp"

namespace cli
{

constexpr std::string_view waiting_mark_waits = "wait";
constexpr std::string_view waiting_mark_done = "done";

// The mark as it stands in the file.
struct waiting_record {
    std::size_t offset;
    std::size_t size;
    std::string mark;
    event what;

    bool is_done() const { return mark == waiting_mark_done; }
    std::size_t mark_offset() const;
};

// Bytes of the file that hold no event.
struct unreadable_piece {
    std::size_t offset;
    std::size_t size;
};

struct waiting_content {
    std::vector<waiting_record> records;
    std::vector<unreadable_piece> damage;
};

std::string waiting_record_text(const event &what);
// What is no record is passed over, and so is a record of an event that no box can hold.
waiting_content parse_waiting_records(std::string_view bytes);
// Whether this command has written the bytes. The first record may be torn or damaged, and a loss
// of power can leave zeros.
bool is_waiting_content(std::string_view bytes);

} // namespace cli

#endif
