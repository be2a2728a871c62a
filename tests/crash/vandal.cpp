// Damages files of a folder in the ways that its random numbers choose, and notes which bytes of
// them were hit.
#include "crash/vandal.hpp"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>

namespace
{

// Where the number of the next file stands in a state file: behind its two names, the stage and
// the three sizes.
std::size_t offset_of_next_number(const std::string &state)
{
    std::size_t at = 1;
    for (int name = 0; name < 2; ++name) {
        uint32_t length = 0;
        for (std::size_t i = 0; i < 4 && at + i < state.size(); ++i) {
            length = length << 8 | static_cast<unsigned char>(state[at + i]);
        }
        at += 4 + length;
    }
    return at + 16;
}

bool is_state(const std::string &name)
{
    return name.find("buf") == std::string::npos;
}

} // namespace

vandal::vandal(const folder_content &files, const std::vector<folder_content> &earlier,
               random_source *random)
    : random_(random), earlier_(earlier)
{
    folder_.files = files;
}

damaged_folder vandal::damage()
{
    std::vector<std::string> names;
    for (const auto &[name, bytes] : folder_.files) {
        names.push_back(name);
    }
    const std::size_t n = std::min(names.size(), 1 + random_->below(3));
    for (std::size_t i = 0; i < n; ++i) {
        const std::size_t chosen = random_->below(names.size());
        damage(names[chosen]);
        names.erase(names.begin() + static_cast<std::ptrdiff_t>(chosen));
    }
    return folder_;
}

void vandal::damage(const std::string &name)
{
    const std::string bytes = *folder_.files[name];
    switch (random_->below(8)) {
    case 0:
        folder_.files.erase(name);
        note(name, 0, SIZE_MAX, "removed");
        break;
    case 1:
        cut(name, bytes);
        break;
    case 2:
        replace_by_another_file(name, bytes);
        break;
    case 3:
        go_back_in_time(name, bytes);
        break;
    case 4:
        if (is_state(name)) {
            change_next_number(name, bytes);
            break;
        }
        [[fallthrough]];
    default:
        overwrite(name, bytes);
        break;
    }
}

void vandal::note(const std::string &name, std::size_t from, std::size_t to,
                  const std::string &what)
{
    folder_.wounds.push_back({name, from, to});
    folder_.what += name + " " + what + "; ";
}

void vandal::cut(const std::string &name, const std::string &bytes)
{
    const std::size_t size = random_->below(bytes.size() + 1);
    const bool zeros = random_->once_in(2);
    folder_.files[name] =
        shared_bytes(bytes.substr(0, size) + std::string(zeros ? bytes.size() - size : 0, '\0'));
    note(name, size, SIZE_MAX, (zeros ? "zeroed from " : "cut at ") + std::to_string(size));
}

void vandal::replace_by_another_file(const std::string &name, const std::string &bytes)
{
    auto other = folder_.files.begin();
    std::advance(other, static_cast<long>(random_->below(folder_.files.size())));
    if (other->first == name || *other->second == bytes) {
        overwrite(name, bytes);
        return;
    }
    folder_.files[name] = other->second;
    note(name, 0, SIZE_MAX, "is a copy of " + other->first);
}

// As after a restored backup, or after a disk that forgot the last writes.
void vandal::go_back_in_time(const std::string &name, const std::string &bytes)
{
    std::vector<std::shared_ptr<const std::string>> versions;
    for (const folder_content &folder : earlier_) {
        const auto then = folder.find(name);
        if (then != folder.end() && *then->second != bytes) {
            versions.push_back(then->second);
        }
    }
    if (versions.empty()) {
        overwrite(name, bytes);
        return;
    }
    const auto version = random_->one_of(versions);
    folder_.files[name] = version;
    note(name, is_state(name) ? 0 : version->size(), SIZE_MAX, "is from earlier");
}

void vandal::change_next_number(const std::string &name, const std::string &bytes)
{
    const std::size_t at = offset_of_next_number(bytes);
    if (at + 4 > bytes.size()) {
        overwrite(name, bytes);
        return;
    }
    const uint32_t number = random_->one_of<uint32_t>(
        {0, 1, 2, 0xff, 0x7fffffff, 0xfffffff0, 0xfffffffd, 0xfffffffe, 0xffffffff});
    std::string changed = bytes;
    for (std::size_t i = 0; i < 4; ++i) {
        changed[at + i] = static_cast<char>(number >> (24 - 8 * i));
    }
    folder_.files[name] = shared_bytes(changed);
    note(name, at, at + 4, "has the next number " + std::to_string(number));
}

void vandal::overwrite(const std::string &name, const std::string &bytes)
{
    if (bytes.empty()) {
        return;
    }
    const std::size_t at = random_->below(bytes.size());
    const std::size_t n = std::min(bytes.size() - at, 1 + random_->below(24));
    const std::size_t kind = random_->below(3);
    std::string changed = bytes;
    for (std::size_t i = at; i < at + n; ++i) {
        changed[i] = kind == 0 ? '\xff' : kind == 1 ? '\0' : static_cast<char>(random_->below(256));
    }
    folder_.files[name] = shared_bytes(changed);
    note(name, at, at + n,
         std::to_string(n) + " bytes at " + std::to_string(at) + " are " +
             (kind == 0   ? "ff"
              : kind == 1 ? "00"
                          : "noise"));
}
