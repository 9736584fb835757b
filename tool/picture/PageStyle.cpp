// SPDX-License-Identifier: Apache-2.0

#include "tool/picture/Page.h"

namespace tool {

// Blue and orange of a palette that people with any kind of colour blindness can tell apart; and
// nothing is told by colour alone: a hovering pen is dashed, pressure makes a line wider.
const std::string_view kChartStyle = R"css(
:root { color-scheme: light dark; --paper: #ffffff; --ink: #1b1b1b; --soft: #595959; --plot: #f2f4f6; --line: #0072b2;
  --bar: #b34700; }
@media (prefers-color-scheme: dark) {
  :root { --paper: #121417; --ink: #e8e8e8; --soft: #a8adb3; --plot: #1e2226; --line: #56b4e9; --bar: #e69f00; }
}
.background { fill: var(--paper); }
text { font: 12px system-ui, sans-serif; fill: var(--ink); }
.end { text-anchor: end; }
.middle { text-anchor: middle; }
.plot { fill: var(--plot); }
.line { fill: none; stroke: var(--line); stroke-width: 1.2; stroke-linejoin: round; }
.bar { fill: none; stroke: var(--bar); stroke-width: 11; }
.down { fill: var(--bar); }
.way { fill: none; stroke: var(--line); stroke-linecap: round; stroke-linejoin: round; }
.p0 { stroke: var(--soft); stroke-width: 0.7; stroke-dasharray: 3 3; }
.p1 { stroke-width: 1; opacity: 0.65; }
.p2 { stroke-width: 1.4; opacity: 0.7; }
.p3 { stroke-width: 1.8; opacity: 0.75; }
.p4 { stroke-width: 2.2; opacity: 0.8; }
.p5 { stroke-width: 2.8; opacity: 0.85; }
.p6 { stroke-width: 3.4; opacity: 0.9; }
.p7 { stroke-width: 4; }
)css";

const std::string_view kPageStyle = R"css(
body { margin: 0 auto; padding: 1rem; max-width: 62rem; font: 16px/1.45 system-ui, sans-serif; background: var(--paper);
  color: var(--ink); }
h1 { margin: 0; font-size: 1.6rem; overflow-wrap: anywhere; }
h2 { margin: 2rem 0 0.5rem; font-size: 1.15rem; }
.verdict { margin: 0.25rem 0 1rem; font-size: 1.1rem; }
svg { display: block; max-width: 100%; height: auto; }
svg.zooms { touch-action: pan-y; cursor: crosshair; }
.select { fill: var(--line); opacity: 0.2; }
table { border-collapse: collapse; }
th { padding: 0.1rem 1rem 0.1rem 0; text-align: left; font-weight: 600; vertical-align: top; white-space: nowrap; }
td { padding: 0.1rem 1rem 0.1rem 0; overflow-wrap: anywhere; }
#rows { font: 13px/1.5 ui-monospace, monospace; }
#rows td { overflow-wrap: normal; }
#rows b { text-decoration: underline; color: var(--bar); }
#rows .number { text-align: right; }
ul { margin: 0; padding-left: 1.3rem; list-style: none; border-left: 1px solid var(--plot); }
#tree > ul { padding-left: 0; border: 0; }
code { color: var(--soft); font: 13px ui-monospace, monospace; }
.tools { display: flex; flex-wrap: wrap; gap: 0.5rem; align-items: center; margin: 0.5rem 0; }
button, input, select { font: inherit; color: inherit; background: var(--plot); border: 1px solid var(--soft);
  border-radius: 4px; padding: 0.15rem 0.6rem; }
:focus-visible { outline: 2px solid var(--bar); outline-offset: 1px; }
.fault { color: var(--bar); font-weight: 600; }
.note { color: var(--soft); }
[hidden] { display: none; }
)css";

}  // namespace tool
