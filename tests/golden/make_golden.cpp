// Makes the golden files anew: make_golden FOLDER. Only a change of the format is a reason to; the
// files of released formats stay.
#include <cstdio>
#include <filesystem>
#include <vector>

#include "common/temporary_directory.hpp"
#include "golden/recorded_life.hpp"
#include "golden/swapped_floats.hpp"

namespace
{

using live = int (*)(vesk *box, const life_chapter &chapter);

int make(const std::filesystem::path &golden, vesk *box, live live_through,
         const std::vector<life_chapter> &chapters)
{
    for (const life_chapter &chapter : chapters) {
        const int result = live_through(box, chapter);
        if (result != 0) {
            (void)fprintf(stderr, "chapter %s: %d\n", chapter.name.c_str(), result);
            return 1;
        }
        std::filesystem::create_directories(golden / chapter.name);
        for (const auto &file : std::filesystem::directory_iterator(".")) {
            write_file(golden / chapter.name / file.path().filename(), read_file(file.path()));
        }
    }
    vesk_close(&box);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        (void)fprintf(stderr, "usage: make_golden FOLDER\n");
        return 2;
    }
    const std::filesystem::path golden = std::filesystem::absolute(argv[1]);
    const temporary_directory first;
    std::filesystem::current_path(first.path());
    vesk *box = vesk_create(life_base_name, life_num_cb_samples, life_num_hb_intervals);
    const int made = make(golden, box, live_chapter, life_chapters());
    const temporary_directory second;
    std::filesystem::current_path(second.path());
    box =
        vesk_create(life_base_name, swapped_floats_num_cb_samples, swapped_floats_num_hb_intervals);
    return made + make(golden, box, live_swapped_floats, swapped_floats_chapters());
}
