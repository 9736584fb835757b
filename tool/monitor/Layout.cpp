// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Layout.h"

#include <algorithm>

namespace tool::monitor {

namespace {

constexpr int kTwoColumns = 100;
constexpr int kThreeColumns = 160;
constexpr int kHeadRows = 3;
constexpr int kLowRows = 10;

/// Cuts pieces off what is left.
class Space {
 public:
  explicit Space(const Rect& rect) : rect_(rect) {}

  Rect left(int columns) {
    const Rect piece{rect_.row, rect_.column, rect_.rows, columns};
    rect_.column += columns + 1;
    rect_.columns -= columns + 1;
    return piece;
  }
  Rect right(int columns) {
    rect_.columns -= columns + 1;
    return {rect_.row, rect_.column + rect_.columns + 1, rect_.rows, columns};
  }
  Rect top(int rows) {
    const Rect piece{rect_.row, rect_.column, rows, rect_.columns};
    rect_.row += rows;
    rect_.rows -= rows;
    return piece;
  }
  Rect bottom(int rows) {
    rect_.rows -= rows;
    return {rect_.row + rect_.rows, rect_.column, rows, rect_.columns};
  }
  [[nodiscard]] const Rect& rest() const { return rect_; }

 private:
  Rect rect_;
};

int withTitle(std::size_t lines) {
  return static_cast<int>(std::min<std::size_t>(lines, 1000)) + 1;
}

/// Path and board beside each other; one of them alone if there is only one.
void placePicture(const Rect& rect, const Contents& contents, std::vector<Pane>& panes) {
  Space space(rect);
  if (contents.paths == 0) return panes.push_back({View::Board, rect});
  if (contents.keys > 0) panes.push_back({View::Board, space.right(rect.columns / 2)});
  panes.push_back({View::Path, space.rest()});
}

/// Elements, then path and board, then reports, below one another.
void placeStack(const Rect& rect, const Contents& contents, std::vector<Pane>& panes) {
  Space space(rect);
  const bool hasPicture = contents.paths > 0 || contents.keys > 0;
  const int picture = hasPicture ? std::max(rect.rows * 2 / 5, 2) : 0;
  const int reports = rect.rows < kLowRows ? 2 : std::max(rect.rows / 5, 3);
  const int elements =
      std::clamp(withTitle(contents.elements), 2, std::max(rect.rows - picture - reports, 2));
  panes.push_back({View::Elements, space.top(elements)});
  if (!hasPicture) return panes.push_back({View::Reports, space.rest()});
  panes.push_back({View::Reports, space.bottom(reports)});
  placePicture(space.rest(), contents, panes);
}

/// The picture has a column of its own.
void placeWide(const Rect& rect, const Contents& contents, std::vector<Pane>& panes) {
  Space space(rect);
  const bool hasPath = contents.paths > 0;
  if (hasPath || contents.keys > 0) {
    Space picture(space.right(rect.columns * 2 / 5));
    if (contents.keys > 0 && hasPath)
      panes.push_back({View::Board, picture.bottom(picture.rest().rows / 3)});
    panes.push_back({hasPath ? View::Path : View::Board, picture.rest()});
  }
  const int elements = std::clamp(withTitle(contents.elements), 2, rect.rows * 2 / 3);
  panes.push_back({View::Elements, space.top(elements)});
  panes.push_back({View::Reports, space.rest()});
}

}  // namespace

Contents contentsOf(const Shown& shown) {
  Contents contents;
  contents.hasDevice = shown.open.has_value();
  if (shown.model == nullptr) return contents;
  contents.elements = shown.model->tracks().size();
  contents.paths = shown.model->paths().size();
  contents.keys = shown.model->board().keys().size();
  return contents;
}

std::vector<Pane> layoutOf(int rows, int columns, const Contents& contents, View view) {
  if (rows < kLeastRows || columns < kLeastColumns) return {};
  const int top = contents.hasDevice ? kHeadRows : 1;
  const Rect body{top, 0, rows - top - 1, columns};
  if (!contents.hasDevice) return {{View::Devices, body}};
  if (view != View::All) return {{view, body}};
  std::vector<Pane> panes;
  Space space(body);
  if (columns >= kTwoColumns) {
    panes.push_back({View::Devices, space.left(columns >= kThreeColumns ? 60 : 44)});
  }
  if (columns >= kThreeColumns)
    placeWide(space.rest(), contents, panes);
  else
    placeStack(space.rest(), contents, panes);
  return panes;
}

bool showsDevices(int rows, int columns, const Contents& contents, View view) {
  return std::ranges::any_of(layoutOf(rows, columns, contents, view),
                             [](const Pane& pane) { return pane.what == View::Devices; });
}

}  // namespace tool::monitor
