// SPDX-License-Identifier: Apache-2.0

#include "examples/status-window/StatusWindow.h"

#include <QCloseEvent>
#include <QDateTime>
#include <QFormLayout>
#include <QMessageBox>
#include <QMetaObject>
#include <QThreadPool>

namespace {

constexpr const char* kPrompt = "This application wants to receive your device's input.";

/// Called on the thread that installs, which waits for the window's.
wlhid::Consent ask(QWidget* window, const std::string& prompt) {
  auto answer = wlhid::Consent::Canceled;
  QMetaObject::invokeMethod(
      window,
      [&] {
        const auto given = QMessageBox::question(window, "Install the event router?",
                                                 QString::fromStdString(prompt));
        answer = given == QMessageBox::Yes ? wlhid::Consent::Given : wlhid::Consent::Denied;
      },
      Qt::BlockingQueuedConnection);
  return answer;
}

}  // namespace

// The callbacks come on threads of the library's; what they bring is handed to the window's thread.
StatusWindow::StatusWindow(std::uint64_t device)
    : source_({.device = device},
              {.report =
                   [this](const wlhid::Report&) {
                     QMetaObject::invokeMethod(this, [this] { reports_.setNum(++reportCount_); });
                   },
               .status =
                   [this](const wlhid::Status& status) {
                     QMetaObject::invokeMethod(this, [=, this] { showInput(status); });
                   }}) {
  wlhid::Router::setConsentAgent([this](const std::string& prompt) { return ask(this, prompt); });
  build();
  showRouter();
}

StatusWindow::~StatusWindow() {
  wlhid::Router::setConsentAgent(nullptr);
}

void StatusWindow::build() {
  setWindowTitle("Input");
  resize(620, 220);
  for (QLabel* const label : {&router_, &input_, &problem_}) label->setWordWrap(true);
  router_.setObjectName("router");
  input_.setObjectName("input");
  reports_.setObjectName("reports");
  problem_.setObjectName("problem");
  auto* const form = new QFormLayout(this);
  form->addRow("Router", &router_);
  form->addRow("", &install_);
  form->addRow("", &problem_);
  form->addRow("Input", &input_);
  form->addRow("Reports", &reports_);
  connect(&install_, &QPushButton::clicked, this, [this] { install(); });
}

void StatusWindow::install() {
  isInstalling_ = true;
  problem_.clear();
  showRouter();
  wlhid::Router::install(
      kPrompt,
      [](std::function<void()> work) { QThreadPool::globalInstance()->start(std::move(work)); },
      [this](const wlhid::Error* error) {
        const QString problem = error == nullptr ? "" : error->what();
        QMetaObject::invokeMethod(this, [=, this] { installed(problem); });
      });
}

void StatusWindow::installed(const QString& problem) {
  isInstalling_ = false;
  problem_.setText(problem);
  showRouter();
}

void StatusWindow::showRouter() {
  const wlhid::Presence presence = wlhid::Router::presence();
  router_.setText(QString::fromStdString(presence.text));
  install_.setEnabled(!presence && !isInstalling_);
}

/// Whatever happens to the router, the input notices, so this is the time to look at it again.
void StatusWindow::showInput(const wlhid::Status& status) {
  const auto since =
      QDateTime::fromSecsSinceEpoch(std::chrono::system_clock::to_time_t(status.since));
  input_.setText(QString::fromStdString(status.text) + " (since " + since.toString("hh:mm:ss") +
                 ")");
  showRouter();
}

/// Who installs needs the window to ask.
void StatusWindow::closeEvent(QCloseEvent* event) {
  event->setAccepted(!isInstalling_);
}
