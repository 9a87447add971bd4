// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/commands.h"
#include "kestrelctl/receiver.h"

namespace kestrelctl {

int serve_command(Store&, const Serve_options&) {
  throw Failure("This kestrelctl was built without serve: libcpp-httplib-dev was missing.");
}

}  // namespace kestrelctl
