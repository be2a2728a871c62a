// What the command cannot go below: the bare zlib and stdio calls on the bytes of its buffers.
//
// usage: bench_command_floor compress BUFFER       writes each stream of it anew
//        bench_command_floor inflate BUFFER TEXT   inflates it and writes a text that is there
//        bench_command_floor lines BUFFER          inflates it and counts lines, as zcat | wc -l
//
// The processor time of that, in seconds, is printed; reading beforehand is not part of it.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/stat.h>

#include "common/temporary_directory.hpp"
#include "recorder_work.hpp"

namespace
{

double processor_seconds()
{
    return static_cast<double>(clock()) / CLOCKS_PER_SEC;
}

void write_text(const std::string &text, const std::string &path)
{
    FILE *file = fopen(path.c_str(), "w");
    if (file == nullptr || fwrite(text.data(), 1, text.size(), file) != text.size()) {
        perror(path.c_str());
        exit(1);
    }
    (void)fclose(file);
}

double compress(const std::string &buffer, const std::string &to)
{
    const std::vector<std::string> streams = read_streams(buffer);
    const double begin = processor_seconds();
    FILE *file = fopen(to.c_str(), "w");
    for (const std::string &content : streams) {
        write_stream(file, content);
    }
    (void)fclose(file);
    return processor_seconds() - begin;
}

double inflate_and_write(const std::string &buffer, const std::string &text, const std::string &to)
{
    const std::string content = read_file(text);
    const double begin = processor_seconds();
    inflate_file(buffer);
    write_text(content, to);
    return processor_seconds() - begin;
}

double count_lines(const std::string &buffer)
{
    const double begin = processor_seconds();
    long lines = 0;
    inflate_streams(buffer, [&](bool, const Bytef *content, std::size_t n) {
        lines += std::count(content, content + n, '\n');
    });
    const double end = processor_seconds();
    (void)fprintf(stderr, "%ld lines\n", lines);
    return end - begin;
}

} // namespace

int main(int argc, char **argv)
{
    const std::string what = argc > 1 ? argv[1] : "";
    const temporary_directory folder;
    double seconds = 0;
    if (what == "compress" && argc == 3) {
        seconds = compress(argv[2], folder.file("out"));
    } else if (what == "inflate" && argc == 4) {
        seconds = inflate_and_write(argv[2], argv[3], folder.file("out"));
    } else if (what == "lines" && argc == 3) {
        seconds = count_lines(argv[2]);
    } else {
        (void)fprintf(stderr, "usage: %s compress|inflate|lines BUFFER [TEXT]\n", argv[0]);
        return 2;
    }
    printf("%.3f\n", seconds);
    return 0;
}
