// What all charts share: the span of time that they show, the moment under the cursor, and whether
// values are shown logarithmically. Who draws is told at most once a frame.

const shown = { from: boxBegin, to: boxEnd, cursor: null, logarithmic: false };
const listeners = { window: [], cursor: [] };
const changed = new Set();

function tell(what) {
  if (changed.size === 0) {
    requestAnimationFrame(() => {
      const all = [...changed];
      changed.clear();
      all.forEach((one) => listeners[one].forEach((listener) => listener()));
    });
  }
  changed.add(what);
}

function leastSpan() {
  return Math.max(10 * box.step, 10);
}

function showWindow(from, to) {
  const whole = boxEnd - boxBegin;
  const span = Math.min(Math.max(to - from, Math.min(leastSpan(), whole)), whole);
  const middle = (from + to) / 2;
  shown.from = Math.min(Math.max(middle - span / 2, boxBegin), boxEnd - span);
  shown.to = shown.from + span;
  tell('window');
  tell('cursor');
}

function moveWindow(share) {
  const by = (shown.to - shown.from) * share;
  showWindow(shown.from + by, shown.to + by);
}

function zoomWindow(factor) {
  const span = (shown.to - shown.from) * factor;
  const cursorIsIn = shown.cursor !== null && shown.cursor > shown.from && shown.cursor < shown.to;
  const middle = cursorIsIn ? shown.cursor : (shown.from + shown.to) / 2;
  const place = (middle - shown.from) / (shown.to - shown.from);
  showWindow(middle - span * place, middle + span * (1 - place));
}

function setCursor(time) {
  if (shown.cursor !== time) {
    shown.cursor = time;
    tell('cursor');
  }
}

function setLogarithmic(is) {
  shown.logarithmic = is;
  tell('window');
}

// A moment moves into the middle of all charts, which show a part of the box around it.
function showMoment(time) {
  const whole = boxEnd - boxBegin;
  const now = shown.to - shown.from;
  const span = now > whole * 0.9 ? whole / 12 : now;
  showWindow(time - span / 2, time + span / 2);
  setCursor(time);
}

// The number of the first column that ends at the time or later.
function columnAt(time) {
  let low = 0;
  let high = columnCount;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (columnEnds[middle] < time) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

// The column that is nearest to the moment; -1 in an empty box.
function nearestColumn(time) {
  const next = Math.min(columnAt(time), columnCount - 1);
  const before = next - 1;
  const isNearer = before >= 0 && columnStarts[next] > time &&
    time - columnEnds[before] < columnStarts[next] - time;
  return isNearer ? before : next;
}

// Round moments between two times and how to write them, at most so many.
function timeTicks(from, to, most) {
  const steps = [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200,
    86400, 172800, 604800, 1209600, 2592000, 7776000, 31536000];
  const step = steps.find((one) => (to - from) / one <= most) || (to - from) / most;
  const ticks = [];
  for (let time = Math.ceil(from / step) * step; time <= to; time += step) {
    const text = formatTime(Math.round(time));
    const isMidnight = text.slice(11) === '00:00:00';
    ticks.push({
      time,
      label: step >= 86400 || isMidnight ? text.slice(0, 10) : text.slice(11, step < 60 ? 19 : 16),
    });
  }
  return ticks;
}
