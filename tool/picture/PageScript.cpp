// SPDX-License-Identifier: Apache-2.0

#include "tool/picture/Page.h"

namespace tool {

// A test says what the hash must be when the script has changed.
const std::string_view kPageScriptHash = "sha256-IJBZR/mQ1spchJ2Ii+jlYiklw9pVMfKJffziG7dvOFw=";

const std::string_view kPageScript = R"js(
'use strict';
(async () => {
  const byId = (id) => document.getElementById(id);
  const about = JSON.parse(byId('about').textContent);

  // ---- The reports

  const unpack = async (text) => {
    const packed = Uint8Array.from(atob(text), (c) => c.charCodeAt(0));
    const stream = new Blob([packed]).stream().pipeThrough(new DecompressionStream('gzip'));
    return new Uint8Array(await new Response(stream).arrayBuffer());
  };
  const readReports = (data) => {
    let at = 0;
    const number = () => {
      for (let value = 0, factor = 1;; factor *= 128) {
        const byte = data[at++];
        value += (byte & 127) * factor;
        if (byte < 128) return value;
      }
    };
    const count = number();
    const times = new Float64Array(count);
    for (let i = 0; i < count; ++i) times[i] = about.hasTimes ? (i ? times[i - 1] : 0) + number() : i;
    const lengths = Array.from({length: count}, number);
    const last = new Map();
    const reports = lengths.map((length) => {
      const bytes = data.subarray(at, at += length);
      const id = about.usesIDs ? bytes[0] : 0;
      const before = last.get(id) || [];
      for (let i = about.usesIDs ? 1 : 0; i < Math.min(length, before.length); ++i) bytes[i] ^= before[i];
      last.set(id, bytes);
      return {id, bytes, before};
    });
    return {times, reports};
  };
  const {times, reports} = readReports(await unpack(byId('packed').textContent));

  /// The value of a field; undefined if the report ends before it.
  const valueIn = (bytes, bit, size, isSigned) => {
    if (bit + size > 8 * bytes.length) return undefined;
    let value = 0;
    for (let i = 0; i < size; ++i) value += (bytes[bit + i >> 3] >> (bit + i & 7) & 1) * 2 ** i;
    return isSigned && value >= 2 ** (size - 1) ? value - 2 ** size : value;
  };
  /// Times and values of an axis, taken from the reports when they are first needed.
  const pointsOf = (axis) => axis.points ||= reports.flatMap(({id, bytes}, i) => {
    const value = id === axis.report ? valueIn(bytes, axis.bit, axis.size, axis.signed) : undefined;
    return value === undefined ? [] : [[times[i], value]];
  });
  const isDown = (row, bytes) => {
    if (row.select === null) return valueIn(bytes, row.bit, row.size, row.signed) !== 0;
    for (let i = 0; i < row.count; ++i)
      if (valueIn(bytes, row.bit + i * row.size, row.size, row.signed) === row.select) return true;
    return false;
  };
  const spansOf = (row) => {
    if (row.spans) return row.spans;
    row.spans = [];
    let since = null;
    reports.forEach(({id, bytes}, i) => {
      if (id !== row.report || valueIn(bytes, row.bit, row.size, false) === undefined) return;
      const down = isDown(row, bytes);
      if (down && since === null) since = times[i];
      if (!down && since !== null) row.spans.push([since, times[i]]), since = null;
    });
    if (since !== null) row.spans.push([since, about.end]);
    return row.spans;
  };

  // ---- Zooming: one window of time for all charts and the table

  const [left, right] = about.plot;
  const whole = [0, Math.max(about.end, 1)];
  let shown = whole;
  const place = (time) => left + (time - shown[0]) / (shown[1] - shown[0]) * (right - left);
  const coordinate = (x) => String(Math.round(x * 10) / 10);
  const nameOf = (time) => about.hasTimes ? (time / 1e6).toFixed(3) + ' s' : 'report ' + Math.round(time);

  /// As in the picture: of each column of pixels the first, the lowest, the highest and the last.
  const linePath = (axis) => {
    const points = pointsOf(axis);
    let path = '', column = null;
    const high = (value) => axis.bottom + (value - axis.low) / (axis.high - axis.low) * (axis.top - axis.bottom);
    const flush = () => {
      if (column === null) return;
      path += (path ? 'L' : 'M') + coordinate(column.x) + ' ' + coordinate(column.first);
      if (column.count > 1)
        path += [column.least, column.most, column.last].map((y) => 'V' + coordinate(y)).join('');
    };
    const put = (x, y) => {
      if (column === null || Math.floor(x) !== Math.floor(column.x)) {
        flush();
        column = {x, first: y, least: y, most: y, count: 0};
      }
      column.least = Math.min(column.least, y);
      column.most = Math.max(column.most, y);
      column.last = y;
      ++column.count;
    };
    // A point at each side continues the line to the edge, at its height there.
    const cut = (one, other, time) => one[1] + (other[1] - one[1]) * (time - one[0]) / (other[0] - one[0] || 1);
    points.forEach((point, i) => {
      const [time, value] = point;
      if (time < shown[0]) {
        const next = points[i + 1];
        if (next && next[0] > shown[0]) put(left, high(cut(point, next, shown[0])));
      } else if (time > shown[1]) {
        const last = points[i - 1];
        if (last && last[0] < shown[1]) put(right, high(cut(last, point, shown[1])));
      } else {
        put(place(time), high(value));
      }
    });
    flush();
    return path;
  };
  /// Bars that cannot be told apart are one.
  const barPath = (row) => {
    let path = '', end = -1;
    for (const span of spansOf(row)) {
      if (span[1] < shown[0] || span[0] > shown[1]) continue;
      const from = Math.max(place(span[0]), left, end), to = Math.max(Math.min(place(span[1]), right), from + 1);
      if (to <= end + 1) continue;
      path += 'M' + coordinate(from) + ' ' + coordinate(row.y) + 'H' + coordinate(to);
      end = to;
    }
    return path;
  };

  const charts = [...document.querySelectorAll('svg.zooms')];
  const draw = () => {
    for (const axis of about.axes) axis.path.setAttribute('d', linePath(axis));
    for (const row of about.rows) row.path.setAttribute('d', barPath(row));
    for (const chart of charts) {
      const labels = chart.querySelectorAll('.times text');
      labels.forEach((label, i) => { label.textContent = nameOf(shown[i]); });
    }
    byId('window').textContent = nameOf(shown[0]) + ' to ' + nameOf(shown[1]);
    list();
  };
  const show = (from, to) => {
    const length = Math.min(Math.max(to - from, 1), whole[1]);
    const begin = Math.min(Math.max(from, 0), whole[1] - length);
    shown = [begin, begin + length];
    draw();
  };
  const zoom = (factor) => {
    const middle = (shown[0] + shown[1]) / 2, half = (shown[1] - shown[0]) / 2 * factor;
    show(middle - half, middle + half);
  };
  const move = (part) => {
    const by = (shown[1] - shown[0]) * part;
    show(shown[0] + by, shown[1] + by);
  };
  const letSelect = (chart) => {
    const mark = document.createElementNS(chart.namespaceURI, 'rect');
    let start = null;
    const placeOf = (event) => {
      const box = chart.getBoundingClientRect();
      const x = (event.clientX - box.left) / box.width * chart.viewBox.baseVal.width;
      return Math.min(Math.max(x, left), right);
    };
    const timeAt = (x) => shown[0] + (x - left) / (right - left) * (shown[1] - shown[0]);
    chart.addEventListener('pointerdown', (event) => {
      start = placeOf(event);
      chart.setPointerCapture(event.pointerId);
      mark.setAttribute('class', 'select');
      mark.setAttribute('width', '0');
      mark.setAttribute('height', '100%');
      chart.append(mark);
    });
    chart.addEventListener('pointermove', (event) => {
      if (start === null) return;
      mark.setAttribute('x', Math.min(start, placeOf(event)));
      mark.setAttribute('width', Math.abs(placeOf(event) - start));
    });
    chart.addEventListener('pointerup', (event) => {
      const ends = [start, placeOf(event)].sort((one, other) => one - other);
      start = null;
      mark.remove();
      if (ends[1] - ends[0] > 3) show(timeAt(ends[0]), timeAt(ends[1]));
    });
    chart.addEventListener('pointercancel', () => { start = null; mark.remove(); });
    chart.addEventListener('dblclick', () => show(...whole));
  };

  // ---- The table

  const kMore = 50;
  let limit = kMore;
  /// "01 .. ff" as a list of bytes, null for any; undefined if it is something else.
  const patternIn = (text) => {
    const words = text.trim().toLowerCase().split(/\s+/).filter((word) => word);
    if (!words.every((word) => /^([0-9a-f]{1,2}|\.\.)$/.test(word))) return undefined;
    return words.map((word) => word === '..' ? null : parseInt(word, 16));
  };
  const holds = (bytes, pattern) => {
    for (let i = 0; i + pattern.length <= bytes.length; ++i)
      if (pattern.every((byte, j) => byte === null || byte === bytes[i + j])) return true;
    return false;
  };
  const differs = ({bytes, before}) => bytes.length !== before.length || bytes.some((byte, i) => byte !== before[i]);
  const cell = (row, text, kind) => {
    const item = row.insertCell();
    item.textContent = text;
    if (kind) item.className = kind;
    return item;
  };
  const addRow = (body, i) => {
    const {id, bytes, before} = reports[i];
    const row = body.insertRow();
    cell(row, i, 'number');
    if (about.hasTimes) cell(row, (times[i] / 1e6).toFixed(6), 'number');
    if (about.usesIDs) cell(row, id, 'number');
    const item = cell(row, '');
    bytes.forEach((byte, j) => {
      const text = byte.toString(16).padStart(2, '0');
      const part = byte === before[j] ? document.createTextNode(text) : document.createElement('b');
      part.textContent = text;
      item.append(part, ' ');
    });
  };
  const list = () => {
    const pattern = patternIn(byId('pattern').value);
    byId('pattern').setAttribute('aria-invalid', pattern === undefined);
    const id = byId('id') ? byId('id').value : '';
    const onlyChanges = byId('changes').checked;
    const body = document.createElement('tbody');
    let found = 0;
    for (let i = 0; pattern !== undefined && i < reports.length; ++i) {
      if (times[i] < shown[0] || times[i] > shown[1]) continue;
      if (id !== '' && reports[i].id !== Number(id)) continue;
      if (onlyChanges && !differs(reports[i])) continue;
      if (pattern.length && !holds(reports[i].bytes, pattern)) continue;
      if (found++ < limit) addRow(body, i);
    }
    byId('rows').tBodies[0].replaceWith(body);
    byId('found').textContent = pattern === undefined ? 'Bytes are two digits each, .. for any: 01 .. ff' :
      found + ' of ' + about.count + ' reports' + (found > limit ? ', the first ' + limit + ' shown' : '');
    byId('more').hidden = found <= limit;
  };

  // ---- Beginning

  for (const axis of about.axes) axis.path = byId(axis.chart).querySelector('.line');
  const bars = byId('buttons') ? [...byId('buttons').querySelectorAll('.bar')] : [];
  about.rows.forEach((row, i) => { row.path = bars[i]; });
  for (const [id, act] of Object.entries({
    in: () => zoom(0.5), out: () => zoom(2), earlier: () => move(-0.5), later: () => move(0.5),
    all: () => show(...whole),
  })) byId(id).addEventListener('click', act);
  charts.forEach(letSelect);
  const listAnew = () => { limit = kMore; list(); };
  for (const id of ['pattern', 'id', 'changes']) if (byId(id)) byId(id).addEventListener('input', listAnew);
  byId('more').addEventListener('click', () => { limit += kMore; list(); });
  byId('window').textContent = nameOf(shown[0]) + ' to ' + nameOf(shown[1]);
  list();
  for (const tools of document.querySelectorAll('.tools')) tools.hidden = false;
  document.documentElement.dataset.ready = 'yes';
})();
)js";

}  // namespace tool
