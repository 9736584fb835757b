// SPDX-License-Identifier: Apache-2.0

// Draws what a pen sends: pen-canvas [DEVICE]. Without a pen, try it with a recording of one:
//
//   export WLHID_ROOT=~/pen-root
//   wlhid install && wlhid devices add recordings/pen.hid
//   pen-canvas
#include <QApplication>
#include <cstdlib>

#include "examples/pen-canvas/PenCanvas.h"

int main(int argc, char** argv) {
  const QApplication application(argc, argv);
  PenCanvas canvas(argc > 1 ? std::strtoull(argv[1], nullptr, 0) : 0);
  canvas.show();
  return QApplication::exec();
}
