// The line of events and gaps over the span that the charts show. A click moves all charts there;
// the list below it does the same from the keyboard.

const timeLine = { canvas: null, events: [], gaps: [] };

function readHappenings() {
  for (const row of document.querySelectorAll('table.events tr[data-time]')) {
    const time = Number(row.dataset.time);
    if (row.dataset.end) {
      timeLine.gaps.push({ from: time, to: Number(row.dataset.end) });
    } else {
      timeLine.events.push({ time, type: Math.min(Number(row.dataset.type), 5) });
    }
  }
  timeLine.events.sort((a, b) => a.type - b.type);
}

function drawTimeLine() {
  if (timeLine.canvas.parentElement.hidden) {
    return;
  }
  const { context, width, height } = fittedContext(timeLine.canvas);
  const x = (time) => ((time - shown.from) / (shown.to - shown.from)) * width;
  const floor = height - 18;
  context.fillStyle = colours.hole;
  for (const gap of timeLine.gaps) {
    const left = Math.max(x(gap.from), 0);
    context.fillRect(left, 0, Math.max(Math.min(x(gap.to), width) - left, 1), floor);
  }
  context.fillStyle = colours.grid;
  context.fillRect(0, floor, width, 1);
  for (const event of timeLine.events) {
    const tall = (floor * (1 + event.type)) / 6;
    // Events may lie before the first sample and behind the last one: they stand at the edge.
    const place = Math.min(Math.max(event.time, boxBegin), boxEnd);
    context.fillStyle = colours[`type${event.type}`];
    context.fillRect(x(place) - 1, floor - tall, 2, tall);
  }
  context.fillStyle = colours.muted;
  context.font = '11px system-ui, sans-serif';
  context.textAlign = 'center';
  for (const tick of timeTicks(shown.from, shown.to, Math.max(Math.floor(width / 90), 1))) {
    context.fillRect(x(tick.time), floor, 1, 4);
    const room = context.measureText(tick.label).width / 2 + 2;
    context.fillText(tick.label, Math.min(Math.max(x(tick.time), room), width - room), height - 4);
  }
  if (shown.cursor !== null) {
    context.fillStyle = colours.ink;
    context.fillRect(x(shown.cursor), 0, 1, floor);
  }
}

function describeTimeLine() {
  timeLine.canvas.parentElement.hidden = timeLine.events.length + timeLine.gaps.length === 0;
  timeLine.canvas.setAttribute('aria-label',
    `${timeLine.events.length} events and ${timeLine.gaps.length} gaps; the list holds them`);
}

// The body of the list; a page without events has none yet.
function happeningRows() {
  const rows = document.querySelector('table.events tbody');
  if (rows) {
    return rows;
  }
  const place = document.getElementById('happened');
  place.querySelector('p').remove();
  const frame = element('div', 'scroll list');
  frame.tabIndex = 0;
  frame.setAttribute('role', 'region');
  frame.setAttribute('aria-label', 'Events and gaps, newest first');
  const table = element('table', 'events');
  const head = element('tr');
  for (const title of ['Time (UTC)', 'Type', 'What']) {
    const cell = element('th', '', title);
    cell.scope = 'col';
    head.append(cell);
  }
  table.createTHead().append(head);
  const body = table.createTBody();
  frame.append(table);
  place.append(frame);
  return body;
}

// Adds an event, or a gap that has an end, while the page is open.
function addHappening({ time, end, type, text }) {
  const most = 3000;
  const isGap = end !== undefined;
  const row = element('tr', isGap ? 'gap' : `type${Math.min(type, 5)}`);
  row.dataset.time = time;
  const button = element('button', 'at', formatTime(time));
  button.type = 'button';
  button.dataset.time = time;
  const when = element('td');
  when.append(button);
  row.append(when, element('td', '', String(type)), element('td', '', text));
  const rows = happeningRows();
  const older = [...rows.children].find((one) => Number(one.dataset.time) <= time);
  rows.insertBefore(row, older || null);
  if (rows.children.length > most) {
    rows.lastElementChild.remove();
  }
  if (isGap) {
    row.dataset.end = end;
    timeLine.gaps.push({ from: time, to: end });
    timeLine.gaps.splice(0, timeLine.gaps.length - most);
  } else {
    row.dataset.type = type;
    timeLine.events.push({ time, type: Math.min(type, 5) });
    timeLine.events.splice(0, timeLine.events.length - most);
    timeLine.events.sort((a, b) => a.type - b.type);
  }
  forgetSizes();
  describeTimeLine();
}

function startTimeLine() {
  readHappenings();
  const place = document.getElementById('time-line');
  timeLine.canvas = element('canvas');
  timeLine.canvas.setAttribute('role', 'img');
  place.append(timeLine.canvas);
  describeTimeLine();
  const timeOf = (event) => {
    const frame = timeLine.canvas.getBoundingClientRect();
    return shown.from + ((event.clientX - frame.left) / frame.width) * (shown.to - shown.from);
  };
  timeLine.canvas.addEventListener('click', (event) => showMoment(timeOf(event)));
  timeLine.canvas.addEventListener('pointermove', (event) => setCursor(timeOf(event)));
  timeLine.canvas.addEventListener('pointerleave', () => setCursor(null));
  document.getElementById('happened').addEventListener('click', (event) => {
    const button = event.target.closest('button.at');
    if (button) {
      showMoment(Number(button.dataset.time));
    }
  });
  listeners.window.push(drawTimeLine);
  listeners.cursor.push(drawTimeLine);
}
