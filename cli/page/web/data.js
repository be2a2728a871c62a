// The numbers of the box: reads what stands in the page, unpacks the values of a sensor when they
// are needed, and puts values and times into words.
'use strict';

const box = JSON.parse(document.getElementById('data').textContent);
// More come while the page follows its box.
let columnCount = box.starts.length;

// Where a clock was set back the times of the box go back, but a chart goes from left to right.
const columnOrder = (() => {
  const order = box.starts.map((_, i) => i);
  const goesBack = box.starts.some((time, i) => i > 0 && time < box.starts[i - 1]);
  return goesBack ? order.sort((a, b) => box.starts[a] - box.starts[b] || a - b) : order;
})();
const columnStarts = columnOrder.map((i) => box.starts[i]);
const columnEnds = columnOrder.map((i) => box.starts[i] + box.lengths[i]);
const columnIsWide = columnOrder.map((i) => i < box.wide);
const columnFollowsGap = (() => {
  const holes = new Set(box.holes);
  return columnOrder.map((i) => holes.has(i));
})();
const boxBegin = columnCount > 0 ? columnStarts[0] : 0;
let boxEnd = columnCount > 0 ? Math.max(columnEnds[columnCount - 1], boxBegin + 1) : 1;

function unpack(text) {
  const characters = atob(text);
  const bytes = new Uint8Array(characters.length);
  for (let i = 0; i < characters.length; i++) {
    bytes[i] = characters.charCodeAt(i);
  }
  const view = new DataView(bytes.buffer);
  const values = new Float32Array(bytes.length / 4);
  for (let i = 0; i < values.length; i++) {
    values[i] = view.getFloat32(4 * i, true);
  }
  return values;
}

// The least, mean and greatest value of each column; NaN where there is none. There may be room for
// more columns behind them.
function valuesOf(sensor) {
  if (!sensor.unpacked) {
    const packed = unpack(sensor.values);
    const take = (part) =>
      Float32Array.from(columnOrder, (i) =>
        i < box.wide ? packed[part * box.wide + i] : packed[2 * box.wide + i]);
    const mean = take(1);
    sensor.unpacked = box.wide > 0
      ? { least: take(0), mean, greatest: take(2) }
      : { least: mean, mean, greatest: mean };
    sensor.came = 0;
  }
  if (sensor.came < come.length) {
    addCome(sensor);
  }
  return sensor.unpacked;
}

// Samples that came while the page was open, in the order in which they came: the place among the
// columns, and the values by sensor number.
const come = [];

// A column for a sample; its number is its place in time.
function addColumn(seconds, values, followsGap) {
  let place = columnCount;
  while (place > 0 && columnStarts[place - 1] > seconds) {
    place--;
  }
  columnStarts.splice(place, 0, seconds);
  columnEnds.splice(place, 0, seconds);
  columnIsWide.splice(place, 0, false);
  columnFollowsGap.splice(place, 0, followsGap);
  come.push({ place, values });
  columnCount++;
  boxEnd = Math.max(boxEnd, seconds);
}

function withRoom(values, used) {
  if (used < values.length) {
    return values;
  }
  const larger = new Float32Array(Math.max(2 * used, 256));
  larger.set(values);
  return larger;
}

// Adds what came to the values of a sensor. A chart that is never looked at costs nothing.
function addCome(sensor) {
  const all = sensor.unpacked;
  const isOne = all.least === all.mean;
  const add = (values, place, used, value) => {
    const target = withRoom(values, used);
    target.copyWithin(place + 1, place, used);
    target[place] = value;
    return target;
  };
  let used = columnCount - (come.length - sensor.came);
  for (; sensor.came < come.length; sensor.came++, used++) {
    const { place, values } = come[sensor.came];
    const value = values[sensor.number];
    all.mean = add(all.mean, place, used, value);
    all.least = isOne ? all.mean : add(all.least, place, used, value);
    all.greatest = isOne ? all.mean : add(all.greatest, place, used, value);
  }
}

function shortName(name) {
  return name.length > 2 && name.startsWith('::') ? name.slice(2) : name;
}

function digits(value) {
  const size = Math.abs(value);
  if (size >= 1000 && size < 1e9) {
    return value.toFixed(0);
  }
  return String(Number(value.toPrecision(4)));
}

// As the command shows it: "1.2 GiB", "12.5 %".
function formatValue(value, sensor) {
  if (value === null || Number.isNaN(value)) {
    return '-';
  }
  const [symbol, step] = sensor.unit;
  let prefix = '';
  if (step > 0 && Number.isFinite(value)) {
    const prefixes = step === 1024
      ? ['', 'Ki', 'Mi', 'Gi', 'Ti', 'Pi', 'Ei'] : ['', 'k', 'M', 'G', 'T', 'P', 'E'];
    let power = 0;
    while (Math.abs(value) >= step - 0.5 && power + 1 < prefixes.length) {
      value /= step;
      power++;
    }
    prefix = prefixes[power];
  }
  return symbol === '' ? digits(value) : `${digits(value)} ${prefix}${symbol}`;
}

// "2026-11-21 04:39:31", in UTC as everywhere on the page.
function formatTime(seconds) {
  const time = new Date(seconds * 1000);
  return Number.isNaN(time.getTime()) ? String(seconds)
    : time.toISOString().replace('T', ' ').replace(/\.000Z$/, '');
}

function formatLength(seconds) {
  const units = [[604800, 'w'], [86400, 'd'], [3600, 'h'], [60, 'min'], [1, 's']];
  for (let i = 0; i < units.length; i++) {
    const [length, name] = units[i];
    if (seconds >= length) {
      const whole = Math.floor(seconds / length);
      const rest = i + 1 < units.length ? Math.floor((seconds % length) / units[i + 1][0]) : 0;
      return rest > 0 ? `${whole} ${name} ${rest} ${units[i + 1][1]}` : `${whole} ${name}`;
    }
  }
  return '0 s';
}

// An element with a class and a text; nothing that comes from a box is ever parsed as markup.
function element(kind, className, text) {
  const made = document.createElement(kind);
  if (className) {
    made.className = className;
  }
  if (text !== undefined) {
    made.textContent = text;
  }
  return made;
}

// Changes a text only where it is another one: each change makes the browser lay out the page anew.
function setText(place, text) {
  if (place.textContent !== text) {
    place.textContent = text;
  }
}
