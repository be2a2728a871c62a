// Several files in one input:
//
//   size  field
//      1  which file, modulo the number of names
//      3  length of the content, big-endian; at most what is left
//         content
//
// again and again to the end of the input. A file that comes twice counts as it comes last.
#ifndef VESK_FUZZ_FILE_SET_HPP
#define VESK_FUZZ_FILE_SET_HPP

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The files of a box on the base name "r". Names of buffers say how they are mutated.
inline constexpr std::array<std::string_view, 12> file_set_names = {
    "r.state",    "r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z",  "r.4.hbuf.z", "r.5.cbuf.z",
    "r.6.hbuf.z", "r.7.cbuf.z", "r.8.hbuf.z", "r.state.bak", "r.9.cbuf.z", "r.2.hbuf.z"};

struct file_set_member {
    uint8_t which;
    std::string content;

    std::string_view name() const { return file_set_names[which % file_set_names.size()]; }
    bool is_buffer() const { return name().ends_with(".z"); }
};

inline std::vector<file_set_member> split_file_set(std::string_view input)
{
    std::vector<file_set_member> members;
    while (input.size() >= 4) {
        std::size_t length = 0;
        for (const char c : input.substr(1, 3)) {
            length = length << 8 | static_cast<uint8_t>(c);
        }
        length = std::min(length, input.size() - 4);
        members.push_back({static_cast<uint8_t>(input[0]), std::string(input.substr(4, length))});
        input.remove_prefix(4 + length);
    }
    return members;
}

inline std::string join_file_set(const std::vector<file_set_member> &members)
{
    std::string joined;
    for (const file_set_member &member : members) {
        joined += static_cast<char>(member.which);
        for (int shift = 16; shift >= 0; shift -= 8) {
            joined += static_cast<char>(member.content.size() >> shift);
        }
        joined += member.content;
    }
    return joined;
}

#endif
