// SPDX-License-Identifier: Apache-2.0

// What a settings page of an application shows: whether the router is installed, a button that
// installs it after asking, and what the input of a device is doing, and why. It stays right while
// somebody updates, removes or kills the router, or unplugs the device.
#pragma once

#include <QLabel>
#include <QPushButton>
#include <QWidget>

#include "WLHIDAccess/Input.h"

class StatusWindow final : public QWidget {
 public:
  /// Of the device with that ID; 0: the first that there is.
  explicit StatusWindow(std::uint64_t device);
  ~StatusWindow() override;

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  void build();
  void install();
  void installed(const QString& problem);
  void showRouter();
  void showInput(const wlhid::Status& status);

  QLabel router_, input_, reports_, problem_;
  QPushButton install_{"Install …"};
  bool isInstalling_ = false;
  int reportCount_ = 0;
  wlhid::Input source_;  // the last, so that it ends before what its callbacks use
};
