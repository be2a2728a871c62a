// Damages one to three files of a folder, as disks, restored backups and people do: removes or cuts
// them, takes older ones or others for them, writes over a few of their bytes. What it does follows
// from its source of numbers alone, so a life can be lived again.
#ifndef VESK_TESTS_CRASH_VANDAL_HPP
#define VESK_TESTS_CRASH_VANDAL_HPP

#include <cstddef>
#include <string>
#include <vector>

#include "crash/box.hpp"
#include "crash/random_source.hpp"
#include "crash/stored_records.hpp"

struct damaged_folder {
    folder_content files;
    std::vector<wound> wounds;
    std::string what;
};

class vandal
{
public:
    // `earlier` are folders from earlier in the life of the box.
    vandal(const folder_content &files, const std::vector<folder_content> &earlier,
           random_source *random);

    damaged_folder damage();

private:
    void damage(const std::string &name);
    void note(const std::string &name, std::size_t from, std::size_t to, const std::string &what);
    void cut(const std::string &name, const std::string &bytes);
    void replace_by_another_file(const std::string &name, const std::string &bytes);
    void go_back_in_time(const std::string &name, const std::string &bytes);
    void change_next_number(const std::string &name, const std::string &bytes);
    void overwrite(const std::string &name, const std::string &bytes);

    random_source *random_;
    const std::vector<folder_content> &earlier_;
    damaged_folder folder_;
};

#endif
