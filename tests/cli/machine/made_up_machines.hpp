// Machines that the tests make up: what /proc and /sys hold on a laptop, a server with an older
// kernel, a board and in a container.
#ifndef VESK_TESTS_CLI_MACHINE_MADE_UP_MACHINES_HPP
#define VESK_TESTS_CLI_MACHINE_MADE_UP_MACHINES_HPP

#include "cli/machine/machine_tree.hpp"

// Linux 6.6 on x86, with everything that a single user's machine has.
void make_laptop(const machine_tree &tree);
// Linux 5.4 on x86: two packages, arrays, memory that corrects errors; neither pressure nor irq.
void make_server(const machine_tree &tree);
// Linux 6.1 on ARM: no hwmon, thermal zones, few fields.
void make_board(const machine_tree &tree);
// A container that sees little.
void make_container(const machine_tree &tree);

#endif
