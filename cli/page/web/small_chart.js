// Small charts: the band from the least to the greatest value and the line of the means, drawn on a
// canvas. There may be a thousand of them, so each is drawn only while it is in view, with one pass
// over the columns in the window.

let colours = {};

function readColours() {
  const style = getComputedStyle(document.documentElement);
  for (const name of ['line', 'band', 'muted', 'grid', 'hole', 'ink', 'type1', 'type2', 'type3',
    'type4', 'type5']) {
    colours[name] = style.getPropertyValue(`--chart-${name}`).trim();
  }
}

// To ask for a size makes a browser lay out the page, which is too slow for each chart of each frame:
// sizes are asked for once, until the window has another one.
let sizes = new Map();

function forgetSizes() {
  sizes = new Map();
}

function sizeOf(canvas) {
  if (!sizes.has(canvas)) {
    sizes.set(canvas, { width: canvas.clientWidth, height: canvas.clientHeight });
  }
  return sizes.get(canvas);
}

// Fits a canvas to its place and returns its context, which counts in CSS pixels.
function fittedContext(canvas) {
  const { width, height } = sizeOf(canvas);
  const ratio = window.devicePixelRatio || 1;
  const pixels = [Math.round(width * ratio), Math.round(height * ratio)];
  if (canvas.width !== pixels[0] || canvas.height !== pixels[1]) {
    [canvas.width, canvas.height] = pixels;
  }
  const context = canvas.getContext('2d');
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  context.clearRect(0, 0, width, height);
  return { context, width, height };
}

// Runs of columns without a hole between them. Where several columns share a pixel they become one.
function runsIn(values, width) {
  const scale = width / (shown.to - shown.from);
  const first = Math.max(columnAt(shown.from) - 1, 0);
  const runs = [];
  let run = null;
  let point = null;
  for (let i = first; i < columnCount && columnStarts[i] <= shown.to + (shown.to - shown.from); i++) {
    const usable = shown.logarithmic ? values.greatest[i] > 0 : true;
    if (columnFollowsGap[i] || !Number.isFinite(values.mean[i]) || !usable) {
      run = null;
      point = null;
      if (!Number.isFinite(values.mean[i]) || !usable) {
        continue;
      }
    }
    const left = (columnStarts[i] - shown.from) * scale;
    const right = (columnEnds[i] - shown.from) * scale;
    const least = shown.logarithmic && values.least[i] <= 0 ? values.mean[i] : values.least[i];
    if (!run) {
      run = [];
      runs.push(run);
    }
    if (point && right - point.left < 1) {
      point.least = Math.min(point.least, least);
      point.greatest = Math.max(point.greatest, values.greatest[i]);
      point.sum += values.mean[i];
      point.count++;
      point.right = right;
    } else {
      point = { left, right, least, greatest: values.greatest[i], sum: values.mean[i], count: 1 };
      run.push(point);
    }
    if (left > width) {
      break;
    }
  }
  return runs;
}

function rangeOf(runs, width) {
  let least = Infinity;
  let greatest = -Infinity;
  for (const run of runs) {
    for (const point of run) {
      if (point.right >= 0 && point.left <= width) {
        least = Math.min(least, point.least);
        greatest = Math.max(greatest, point.greatest);
      }
    }
  }
  return { least, greatest };
}

function heightScale(range, height) {
  const margin = 4;
  const inside = height - 2 * margin;
  const of = shown.logarithmic ? (value) => Math.log(Math.max(value, 1e-38)) : (value) => value;
  const low = of(range.least);
  const span = of(range.greatest) - low;
  if (span <= 0) {
    return () => height / 2;
  }
  return (value) => height - margin - ((of(value) - low) / span) * inside;
}

// Whether a point is drawn with its two ends. One end is enough within a pixel: half of the time of
// a frame goes to the corners of lines.
function isWide(point, run) {
  return point.right - point.left >= 1 || run.length === 1;
}

function drawBand(context, run, y) {
  context.beginPath();
  for (const point of run) {
    const greatest = y(point.greatest);
    context.lineTo(point.left, greatest);
    if (isWide(point, run)) {
      context.lineTo(point.right, greatest);
    }
  }
  for (let i = run.length - 1; i >= 0; i--) {
    const least = y(run[i].least);
    if (isWide(run[i], run)) {
      context.lineTo(run[i].right, least);
    }
    context.lineTo(run[i].left, least);
  }
  context.closePath();
  context.fill();
}

function drawLine(context, run, y) {
  context.beginPath();
  for (const point of run) {
    const mean = y(point.sum / point.count);
    context.lineTo(point.left, mean);
    if (isWide(point, run)) {
      context.lineTo(point.right, mean);
    }
  }
  if (run.length === 1 && run[0].right - run[0].left < 2) {
    context.rect(run[0].left - 0.5, y(run[0].sum / run[0].count) - 0.5, 1, 1);
  }
  context.stroke();
}

function drawSmall(canvas, sensor) {
  const { context, width, height } = fittedContext(canvas);
  const runs = runsIn(valuesOf(sensor), width);
  const range = rangeOf(runs, width);
  context.font = '10px system-ui, sans-serif';
  context.fillStyle = colours.muted;
  if (range.least > range.greatest) {
    context.fillText('no values here', 6, height / 2 + 3);
    return;
  }
  const y = heightScale(range, height);
  context.fillStyle = colours.band;
  context.strokeStyle = colours.line;
  // Wider lines and round corners take twice the time.
  context.lineWidth = 1;
  context.lineJoin = 'bevel';
  runs.forEach((run) => drawBand(context, run, y));
  runs.forEach((run) => drawLine(context, run, y));
}

function rangeText(sensor) {
  const values = valuesOf(sensor);
  let least = Infinity;
  let greatest = -Infinity;
  for (let i = columnAt(shown.from); i < columnCount && columnStarts[i] <= shown.to; i++) {
    if (values.least[i] < least) {
      least = values.least[i];
    }
    if (values.greatest[i] > greatest) {
      greatest = values.greatest[i];
    }
  }
  return least > greatest ? '' : least === greatest ? 'constant'
    : `${formatValue(least, sensor)} to ${formatValue(greatest, sensor)}`;
}

// What stands beside the name: the value under the cursor, or the last one.
function valueText(sensor) {
  const values = valuesOf(sensor);
  let column = columnCount - 1;
  if (shown.cursor !== null) {
    column = nearestColumn(shown.cursor);
  }
  return column < 0 ? '-' : formatValue(values.mean[column], sensor);
}
