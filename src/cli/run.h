// SPDX-License-Identifier: GPL-3.0-or-later
//
// One run of the program: parse the command line, open the bus, boot if asked, and carry out what
// was asked for in a fixed order.
#pragma once

/// 0 for root; otherwise 1 after a message.
int check_sudo();

/// Print the notice that every run begins with.
void print_new_start_banner();

/// The whole run. Always 0; argp itself ends the process for --help, --usage, --version and usage
/// errors.
int run(int argc, char** argv);
