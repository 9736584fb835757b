// SPDX-License-Identifier: Apache-2.0

// A window that installs the router after asking, and shows what the input of a device is doing:
// status-window [DEVICE]. Its router is in Contents/ beside it.
#include <QApplication>
#include <cstdlib>

#include "examples/status-window/StatusWindow.h"

int main(int argc, char** argv) {
  const QApplication application(argc, argv);
  StatusWindow window(argc > 1 ? std::strtoull(argv[1], nullptr, 0) : 0);
  window.show();
  return QApplication::exec();
}
