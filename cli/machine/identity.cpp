// Reads the host name, the machine id, the boot id and the kernel release from files below a root.
// What is missing or has another form stays empty: a container may have none of them. The texts are
// bounded, and they are stored in the box as they are, so whoever shows them makes them printable.
#include "machine/identity.hpp"

#include "machine/small_file.hpp"

namespace cli
{
namespace
{

// The kernel allows 64 bytes of each; whatever lies there in a tree that is no /proc is cut off.
constexpr std::size_t longest_name = 255;

std::string name_in(const std::string &path)
{
    return first_line_of(path).substr(0, longest_name);
}

} // namespace

machine_identity read_identity(const std::string &root, bool with_machine_id)
{
    const std::string kernel = root + "/proc/sys/kernel/";
    machine_identity who;
    who.host = name_in(kernel + "hostname");
    who.boot_id = id_or_nothing(first_line_of(kernel + "random/boot_id"));
    who.kernel = name_in(kernel + "osrelease");
    if (with_machine_id) {
        who.machine_id = id_or_nothing(first_line_of(root + "/etc/machine-id"));
    }
    return who;
}

} // namespace cli
