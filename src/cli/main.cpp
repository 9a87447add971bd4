// SPDX-License-Identifier: GPL-3.0-or-later
//
// The program is the run; all that it does is in the libraries, where the tests reach it.
#include "cli/run.h"

int main(int argc, char** argv) { return run(argc, argv); }
