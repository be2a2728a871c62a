// The large chart, drawn by dygraphs: one sensor with its axes, the value under the cursor and its
// statistics. Its window and its cursor are those of all charts. In a build without dygraphs it is a
// small chart of more height.

// The legend of dygraphs would need style attributes, which the policy of the page forbids; what it
// says stands below the chart.
if (typeof Dygraph !== 'undefined') {
  Dygraph.PLUGINS = Dygraph.PLUGINS.filter((plugin) => plugin !== Dygraph.Plugins.Legend);
}

const large = { sensor: null, graph: null, rows: null, opener: null, drawing: false };
const largePlace = document.getElementById('large');

// Wide columns have a point at both of their ends; a hole is a point without a value.
function graphRows(sensor) {
  const values = valuesOf(sensor);
  const rows = [];
  const rowOfColumn = new Array(columnCount);
  let last = -Infinity;
  const add = (seconds, bar) => {
    // Two samples in one second must not go back on the axis.
    last = Math.max(seconds * 1000, last);
    rows.push([new Date(last), bar]);
  };
  const nothing = [null, null, null];
  for (let i = 0; i < columnCount; i++) {
    if (columnFollowsGap[i]) {
      add(columnStarts[i], nothing);
    }
    const bar = Number.isFinite(values.mean[i])
      ? [values.least[i], values.mean[i], values.greatest[i]] : nothing;
    rowOfColumn[i] = rows.length;
    add(columnStarts[i], bar);
    if (columnEnds[i] > columnStarts[i]) {
      add(columnEnds[i], bar);
    }
  }
  return { rows, rowOfColumn };
}

function numberTable(sensor) {
  const list = element('dl', 'statistics');
  const add = (title, text, remark) => {
    const item = element('div');
    item.append(element('dt', '', title), element('dd', '', text));
    if (remark) {
      item.title = remark;
    }
    list.append(item);
    return item.lastChild;
  };
  large.cursorText = add('at the cursor', '');
  large.rangeText = add('in view', '');
  const numbers = sensor.numbers;
  if (numbers) {
    const at = ([from, to]) =>
      from === to ? `at ${formatTime(from)}` : `${formatTime(from)} to ${formatTime(to)}`;
    add('last', formatValue(numbers.last, sensor));
    add('least', formatValue(numbers.least, sensor), at(numbers.when_least));
    add('mean', formatValue(numbers.mean, sensor));
    add('greatest', formatValue(numbers.greatest, sensor), at(numbers.when_greatest));
    add('deviation', (numbers.rough && numbers.deviation !== null ? '~' : '') +
      formatValue(numbers.deviation, sensor));
    add('readings', String(numbers.count));
  }
  return list;
}

function graphOptions(sensor) {
  return {
    customBars: true,
    labels: ['time', 'value'],
    labelsUTC: true,
    legend: 'never',
    logscale: shown.logarithmic,
    dateWindow: [shown.from * 1000, shown.to * 1000],
    showRangeSelector: true,
    rangeSelectorHeight: 26,
    rangeSelectorPlotFillColor: colours.line,
    rangeSelectorPlotStrokeColor: colours.line,
    rangeSelectorBackgroundStrokeColor: colours.grid,
    color: colours.line,
    fillAlpha: 0.22,
    strokeWidth: 1.5,
    gridLineColor: colours.grid,
    axisLineColor: colours.grid,
    highlightCircleSize: 4,
    drawGapEdgePoints: true,
    xRangePad: 4,
    yRangePad: 6,
    axes: {
      // Amounts of memory have round numbers in powers of two.
      y: {
        axisLabelFormatter: (value) => formatValue(value, sensor),
        axisLabelWidth: 76,
        labelsKMG2: sensor.unit[1] === 1024,
      },
      x: { pixelsPerLabel: 90 },
    },
    highlightCallback: (event, milliseconds) => setCursor(milliseconds / 1000),
    unhighlightCallback: () => setCursor(null),
    drawCallback: (graph, isFirst) => {
      if (!isFirst && !large.drawing) {
        const [from, to] = graph.xAxisRange();
        showWindow(from / 1000, to / 1000);
      }
    },
  };
}

function makeGraph(place, sensor) {
  if (typeof Dygraph === 'undefined') {
    const canvas = element('canvas', 'plain');
    place.append(canvas);
    large.canvas = canvas;
    drawSmall(canvas, sensor);
    return;
  }
  const { rows, rowOfColumn } = graphRows(sensor);
  large.rowOfColumn = rowOfColumn;
  large.graph = new Dygraph(place, rows, graphOptions(sensor));
}

function destroyGraph() {
  if (large.graph) {
    large.graph.destroy();
  }
  large.graph = null;
  large.canvas = null;
}

function openLarge(sensor, opener) {
  destroyGraph();
  large.sensor = sensor;
  large.opener = opener || large.opener;
  largePlace.textContent = '';
  const head = element('div', 'head');
  const title = element('h2', '', shortName(sensor.name));
  title.tabIndex = -1;
  const close = element('button', 'close', '×');
  close.type = 'button';
  close.setAttribute('aria-label', 'Close the large chart');
  close.addEventListener('click', closeLarge);
  head.append(title, close);
  const place = element('div', 'graph');
  large.list = numberTable(sensor);
  largePlace.append(head, place, large.list);
  largePlace.hidden = false;
  document.documentElement.classList.add('has-large');
  large.place = place;
  large.columns = columnCount;
  makeGraph(place, sensor);
  updateLargeTexts();
  title.focus({ preventScroll: true });
}

function closeLarge() {
  destroyGraph();
  large.sensor = null;
  largePlace.hidden = true;
  largePlace.textContent = '';
  document.documentElement.classList.remove('has-large');
  if (large.opener && large.opener.isConnected) {
    large.opener.focus({ preventScroll: true });
  }
  large.opener = null;
}

function updateLargeTexts() {
  if (!large.sensor) {
    return;
  }
  setText(large.rangeText, rangeText(large.sensor) || '-');
  const column = shown.cursor === null ? columnCount - 1 : nearestColumn(shown.cursor);
  const time = column < 0 ? '' : formatTime(columnStarts[column]);
  const wide = column >= 0 && columnIsWide[column]
    ? ` (mean of ${formatLength(columnEnds[column] - columnStarts[column])})` : '';
  setText(large.cursorText, `${valueText(large.sensor)}${wide}, ${time}`);
}

// Draws the samples that came since the chart was drawn.
function addToLarge() {
  const list = numberTable(large.sensor);
  large.list.replaceWith(list);
  large.list = list;
  large.columns = columnCount;
  if (large.graph) {
    const { rows, rowOfColumn } = graphRows(large.sensor);
    large.rowOfColumn = rowOfColumn;
    large.drawing = true;
    large.graph.updateOptions({ file: rows, dateWindow: [shown.from * 1000, shown.to * 1000] });
    large.drawing = false;
  }
}

function updateLarge() {
  if (large.sensor && large.columns !== columnCount) {
    addToLarge();
  }
  updateLargeTexts();
  if (large.canvas) {
    drawSmall(large.canvas, large.sensor);
  }
  if (large.graph && !isGraphUpToDate()) {
    // What dygraphs draws now was asked for here, and is not to be told to all charts again. All
    // options but the window make it work out its points anew.
    const options = { dateWindow: [shown.from * 1000, shown.to * 1000] };
    if (large.graph.getOption('logscale') !== shown.logarithmic) {
      options.logscale = shown.logarithmic;
    }
    large.drawing = true;
    large.graph.updateOptions(options);
    large.drawing = false;
  }
}

function isGraphUpToDate() {
  const [from, to] = large.graph.xAxisRange();
  return Math.abs(from - shown.from * 1000) < 1 && Math.abs(to - shown.to * 1000) < 1 &&
    large.graph.getOption('logscale') === shown.logarithmic;
}

function updateLargeCursor() {
  updateLargeTexts();
  if (large.graph && shown.cursor !== null) {
    const row = large.rowOfColumn[nearestColumn(shown.cursor)];
    if (large.graph.getSelection() !== row) {
      large.graph.setSelection(row);
    }
  } else if (large.graph) {
    large.graph.clearSelection();
  }
}

listeners.window.push(updateLarge);
listeners.cursor.push(updateLargeCursor);
