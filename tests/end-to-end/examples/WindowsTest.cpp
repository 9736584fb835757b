// SPDX-License-Identifier: Apache-2.0

// The examples with a window, as a person sees and uses them.
#include <QApplication>
#include <QEventLoop>
#include <QImage>
#include <QMessageBox>
#include <QPixmap>
#include <QScreen>
#include <QTimer>
#include <QWindow>

#include "InputFixture.h"
#include "examples/pen-canvas/PenCanvas.h"
#include "examples/status-window/StatusWindow.h"

namespace {

namespace fs = std::filesystem;

/// Lets the window live until the condition holds.
testing::AssertionResult comes(const std::function<bool()>& condition) {
  QTimer look;
  QEventLoop loop;
  QObject::connect(&look, &QTimer::timeout, [&] {
    if (condition()) loop.exit(1);
  });
  look.start(10);
  QTimer::singleShot(inputtest::kPatience, &loop, [&] { loop.exit(0); });
  return loop.exec() == 1 ? testing::AssertionSuccess() : testing::AssertionFailure();
}

/// What is on the screen where the window is.
QImage picture(const QWidget& window, const std::string& name) {
  for (QWidget* const each : QApplication::topLevelWidgets())
    if (each->isVisible()) each->repaint();
  const QPixmap seen =
      window.screen()->grabWindow(0, window.x(), window.y(), window.width(), window.height());
  if (const char* const directory = std::getenv("WLHID_SCREENSHOTS")) {
    fs::create_directories(directory);
    seen.save(QString::fromStdString(fs::path(directory) / (name + ".png")));
  }
  return seen.toImage();
}

bool isInk(const QImage& image, int x, int y) {
  return image.valid(x, y) && qGray(image.pixel(x, y)) < 0x60;
}

/// The greatest square of ink is so wide.
int broadestStroke(const QImage& image) {
  int broadest = 0;
  std::vector<int> above(static_cast<std::size_t>(image.width()) + 1, 0);
  for (int y = 0; y < image.height(); ++y) {
    std::vector<int> here(above.size(), 0);
    for (int x = 0; x < image.width(); ++x) {
      const auto at = static_cast<std::size_t>(x) + 1;
      if (isInk(image, x, y)) here[at] = 1 + std::min({here[at - 1], above[at], above[at - 1]});
      broadest = std::max(broadest, here[at]);
    }
    above = std::move(here);
  }
  return broadest;
}

class WindowsTest : public inputtest::InputFixture {
 protected:
  void SetUp() override {
    if (QGuiApplication::platformName() != "xcb") GTEST_SKIP() << "no Xvfb is installed (xvfb)";
    InputFixture::SetUp();
  }
  std::uint64_t addPen(bool repeat) const {
    router::ReplayDevice device;
    device.configuration = "pen";
    device.recording = fs::path(std::getenv("WLHID_SOURCE_DIR")) / "recordings/pen.hid";
    device.repeat = repeat;
    return router::addReplayDevice(root_, device);
  }
  static fs::path ownImage() {
    return fs::path(std::getenv("WLHID_BINARY_DIR")) / "Contents/Library/LaunchServices" /
           WLHIDEventRouterLabel;
  }
};

TEST_F(WindowsTest, PenCanvasDrawsBroaderWhereThePenIsPressed) {
  wlhid::Router::install();
  PenCanvas canvas(addPen(false));
  canvas.show();
  ASSERT_TRUE(comes([&] { return canvas.status().startsWith("ended: "); }))
      << canvas.status().toStdString();
  EXPECT_EQ(canvas.pointCount(), 326U);
  ASSERT_TRUE(comes([&] { return broadestStroke(picture(canvas, "pen-canvas")) >= 9; }));
  const QImage drawn = picture(canvas, "pen-canvas");
  EXPECT_TRUE(isInk(drawn, 519, 469)) << "the middle of the line below, where it is pressed most";
  EXPECT_FALSE(isInk(drawn, 519, 530)) << "the pen has not been there";
}

class StatusWindowTest : public WindowsTest {
 protected:
  void SetUp() override {
    WindowsTest::SetUp();
    if (IsSkipped()) return;
    pen_ = addPen(true);
    window_ = std::make_unique<StatusWindow>(pen_);
    window_->show();
  }
  void TearDown() override {
    window_.reset();
    WindowsTest::TearDown();
  }

  [[nodiscard]] std::string text(const char* name) const {
    return window_->findChild<QLabel*>(name)->text().toStdString();
  }
  [[nodiscard]] QPushButton& button() const { return *window_->findChild<QPushButton*>(); }
  [[nodiscard]] bool says(const char* name, std::string_view part) const {
    return text(name).find(part) != std::string::npos;
  }
  [[nodiscard]] bool reportsCome() const {
    const std::string before = text("reports");
    return static_cast<bool>(comes([&] { return text("reports") != before; }));
  }
  /// Somebody presses the button, and answers the question. While it waits for the answer, only
  /// timers of this function run.
  void install(QMessageBox::StandardButton answer) {
    QTimer::singleShot(0, &button(), [this] { button().click(); });
    bool isAnswered = false;
    ASSERT_TRUE(comes([&] {
      auto* const question = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
      if (question == nullptr) return isAnswered;
      if (!question->windowHandle()->isExposed()) return false;
      prompt_ = question->text().toStdString();
      static_cast<void>(picture(*window_, "status-window-question"));
      question->button(answer)->click();
      isAnswered = true;
      return false;
    }));
  }
  std::uint64_t pen_ = 0;
  std::unique_ptr<StatusWindow> window_;
  std::string prompt_;
};

TEST_F(StatusWindowTest, InstallsAfterAskingAndShowsTheInput) {
  EXPECT_TRUE(says("router", "The router is not installed")) << text("router");
  ASSERT_TRUE(comes([&] { return says("input", "waiting for the router"); })) << text("input");
  static_cast<void>(picture(*window_, "status-window-not-installed"));

  install(QMessageBox::No);
  EXPECT_EQ(prompt_, "This application wants to receive your device's input.");
  ASSERT_TRUE(comes([&] { return says("problem", "denied"); })) << text("problem");
  EXPECT_TRUE(button().isEnabled()) << "so that it can be asked again";

  install(QMessageBox::Yes);
  ASSERT_TRUE(comes([&] { return says("input", "routing Example Pen"); })) << text("input");
  ASSERT_TRUE(comes([&] {
    return says("router", "Version " WLHID_VERSION " of the router is installed.");
  })) << text("router");
  EXPECT_THAT(text("input"), testing::MatchesRegex(R"(routing Example Pen \(since ..:..:..\))"));
  EXPECT_EQ(text("problem"), "");
  EXPECT_FALSE(button().isEnabled());
  EXPECT_TRUE(reportsCome());
  static_cast<void>(picture(*window_, "status-window-routing"));
}

TEST_F(StatusWindowTest, SurvivesAnUpdate) {
  install(QMessageBox::Yes);
  ASSERT_TRUE(comes([&] { return says("input", "routing Example Pen"); })) << text("input");

  installElsewhere(OTHER_ROUTER);
  ASSERT_TRUE(comes([&] {
    return says("router",
                "Version 2.0 of the router is installed, and this "
                "application brings " WLHID_VERSION ".");
  })) << text("router");
  ASSERT_TRUE(comes([&] { return says("input", "waiting for the router"); })) << text("input");
  EXPECT_TRUE(button().isEnabled());
  static_cast<void>(picture(*window_, "status-window-other-version"));

  installElsewhere(ownImage());
  ASSERT_TRUE(comes([&] { return says("input", "routing Example Pen"); })) << text("input");
  EXPECT_TRUE(reportsCome());
  ASSERT_TRUE(comes([&] {
    return says("router", "Version " WLHID_VERSION " of the router is installed.");
  })) << text("router");
}

}  // namespace
