// Makes the golden files anew: make_golden FOLDER. Only a change of the format is a reason to; the
// files of released formats stay.
#include <cstdio>
#include <filesystem>

#include "common/temporary_directory.hpp"
#include "golden/recorded_life.hpp"

int main(int argc, char **argv)
{
    if (argc != 2) {
        (void)fprintf(stderr, "usage: make_golden FOLDER\n");
        return 2;
    }
    const std::filesystem::path golden = std::filesystem::absolute(argv[1]);
    const temporary_directory working_directory;
    std::filesystem::current_path(working_directory.path());
    vesk *box = vesk_create(life_base_name, life_num_cb_samples, life_num_hb_intervals);
    for (const life_chapter &chapter : life_chapters()) {
        const int result = live_chapter(box, chapter);
        if (result != 0) {
            (void)fprintf(stderr, "chapter %s: %d\n", chapter.name.c_str(), result);
            return 1;
        }
        std::filesystem::create_directories(golden / chapter.name);
        for (const std::string &name : working_directory.names()) {
            write_file(golden / chapter.name / name, read_file(name));
        }
    }
    vesk_close(&box);
    return 0;
}
