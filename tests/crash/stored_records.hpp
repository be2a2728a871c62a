// The records in the files of a box, each as one line of text, and which of them are missing after
// some bytes of the files were damaged.
#ifndef VESK_TESTS_CRASH_STORED_RECORDS_HPP
#define VESK_TESTS_CRASH_STORED_RECORDS_HPP

#include <cstddef>
#include <string>
#include <vector>

// A record, whatever its sensors are called: those can be lost with another stream.
struct stored_record {
    std::string file;
    std::size_t offset = 0; // of its stream
    std::size_t length = 0;
    std::string what;
};

// What happened to the bytes from `from` to `to` of a file.
struct wound {
    std::string file;
    std::size_t from = 0;
    std::size_t to = 0;
};

// The records in the buffers that the state file names, or in all buffers that are there.
std::vector<stored_record> read_named_records();
std::vector<stored_record> read_all_records();

// The records that were not hit and are not among those found.
std::vector<std::string> missing_records(const std::vector<stored_record> &before,
                                         const std::vector<wound> &wounds,
                                         const std::vector<stored_record> &found);

#endif
