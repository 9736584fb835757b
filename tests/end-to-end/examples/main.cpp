// SPDX-License-Identifier: Apache-2.0

// The tests of windows, in an application with a screen. WLHID_SCREENSHOTS names a directory for
// pictures of it.
#include <gtest/gtest.h>

#include <QApplication>
#include <cstdlib>

#include "tests/end-to-end/examples/Screen.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const test::Screen screen;
  ::setenv("DISPLAY", screen.name().c_str(), 1);
  ::setenv("QT_QPA_PLATFORM", screen.isThere() ? "xcb" : "offscreen", 1);
  ::setenv("LC_ALL", "C.UTF-8", 1);
  const QApplication application(argc, argv);
  return RUN_ALL_TESTS();
}
