// Starts the page: makes a card for each sensor, draws those that are in view, and connects the
// tools, the keyboard and the mouse.

const cards = { all: [], inView: new Set(), group: null };

function partOf(name) {
  const text = shortName(name);
  const dot = text.indexOf('.');
  const end = dot > 0 ? dot : text.indexOf('_');
  return end > 0 ? text.slice(0, end) : text;
}

// The second part divides large groups: "disk.sda".
function subgroupOf(name) {
  const parts = shortName(name).split('.');
  return parts.length > 2 ? `${parts[0]}.${parts[1]}` : null;
}

function groupedSensors() {
  const groups = new Map();
  const counts = new Map();
  for (const sensor of box.sensors) {
    const part = partOf(sensor.name);
    counts.set(part, (counts.get(part) || 0) + 1);
  }
  // Sensors that are alone stand together, unless there are few of them.
  const lonely = [...counts.values()].filter((count) => count === 1).length;
  const other = lonely > 3 ? 'other' : null;
  for (const sensor of box.sensors) {
    const part = partOf(sensor.name);
    sensor.part = other && counts.get(part) === 1 ? other : part;
    if (!groups.has(sensor.part)) {
      groups.set(sensor.part, []);
    }
    groups.get(sensor.part).push(sensor);
  }
  if (other) {
    const last = groups.get(other);
    groups.delete(other);
    groups.set(other, last);
  }
  const result = [];
  for (const [part, sensors] of groups) {
    const subgroups = new Map();
    for (const sensor of sensors) {
      const name = (sensors.length > 24 && subgroupOf(sensor.name)) || part;
      if (!subgroups.has(name)) {
        subgroups.set(name, []);
      }
      subgroups.get(name).push(sensor);
    }
    const isUseful = subgroups.size > 1 && sensors.length / subgroups.size >= 3;
    for (const [name, some] of isUseful ? subgroups : [[part, sensors]]) {
      result.push({ name, part, sensors: some });
    }
  }
  return result;
}

function makeCard(sensor) {
  const card = element('button', 'card');
  card.type = 'button';
  const head = element('span', 'head');
  sensor.valueElement = element('span', 'value');
  sensor.rangeElement = element('span', 'range');
  head.append(element('span', 'name', shortName(sensor.name)), sensor.valueElement);
  sensor.canvas = element('canvas');
  sensor.cursorElement = element('i', 'cursor');
  const frame = element('span', 'frame');
  frame.append(sensor.canvas, sensor.cursorElement);
  card.append(head, frame, sensor.rangeElement);
  card.sensor = sensor;
  sensor.card = card;
  return card;
}

function makeCards() {
  const place = document.getElementById('cards');
  const groups = groupedSensors();
  const isOnly = groups.length === 1;
  for (const group of groups) {
    const section = element('section', 'group');
    const grid = element('div', 'grid');
    grid.append(...group.sensors.map(makeCard));
    section.append(element('h3', '', isOnly ? '' : group.name), grid);
    place.append(section);
    cards.all.push({ ...group, section });
  }
}

function drawCard(sensor) {
  drawSmall(sensor.canvas, sensor);
  moveCardCursor(sensor);
}

function writeCard(sensor) {
  setText(sensor.valueElement, valueText(sensor));
  setText(sensor.rangeElement, rangeText(sensor));
}

function moveCardCursor(sensor) {
  const isIn = shown.cursor !== null && shown.cursor >= shown.from && shown.cursor <= shown.to;
  const place = (shown.cursor - shown.from) / (shown.to - shown.from);
  const left = isIn ? place * sizeOf(sensor.canvas).width : -9;
  sensor.cursorElement.style.transform = `translateX(${left}px)`;
}

// All drawing comes before all texts, so that the page is laid out once.
function drawAll() {
  cards.inView.forEach(drawCard);
  cards.inView.forEach(writeCard);
}

function updateCursors() {
  cards.inView.forEach(moveCardCursor);
  cards.inView.forEach((sensor) => setText(sensor.valueElement, valueText(sensor)));
}

function observeCards() {
  const observer = new IntersectionObserver((entries) => {
    const come = [];
    for (const entry of entries) {
      const { sensor } = entry.target;
      if (entry.isIntersecting) {
        cards.inView.add(sensor);
        drawCard(sensor);
        come.push(sensor);
      } else {
        cards.inView.delete(sensor);
      }
    }
    come.forEach(writeCard);
  }, { rootMargin: '150px' });
  box.sensors.forEach((sensor) => observer.observe(sensor.card));
}

// Dragging over a chart zooms to what lies between; less than some pixels is a click.
function connectDragging() {
  const place = document.getElementById('cards');
  let drag = null;
  const timeAt = (card, clientX) => {
    const frame = card.sensor.canvas.getBoundingClientRect();
    const share = Math.min(Math.max((clientX - frame.left) / frame.width, 0), 1);
    return shown.from + share * (shown.to - shown.from);
  };
  place.addEventListener('pointerdown', (event) => {
    const card = event.target.closest('.card');
    drag = card && event.pointerType === 'mouse' ? { card, x: event.clientX } : null;
  });
  place.addEventListener('pointermove', (event) => {
    const card = event.target.closest('.card');
    setCursor(card ? timeAt(card, event.clientX) : null);
  });
  place.addEventListener('pointerleave', () => setCursor(null));
  place.addEventListener('click', (event) => {
    const card = event.target.closest('.card');
    if (!card) {
      return;
    }
    const isDrag = drag && drag.card === card && Math.abs(event.clientX - drag.x) > 6;
    if (isDrag && event.detail > 0) {
      const times = [timeAt(card, drag.x), timeAt(card, event.clientX)];
      showWindow(Math.min(...times), Math.max(...times));
    } else {
      openLarge(card.sensor, card);
    }
    drag = null;
  });
}

// The end of the box moves while the page follows it.
function makeSpans() {
  const spans = [['all', () => boxBegin]];
  if (box.raw !== null && box.raw > boxBegin) {
    spans.push(['raw samples', () => box.raw]);
  }
  for (const [name, length] of [['last week', 604800], ['last day', 86400], ['last hour', 3600],
    ['last 10 min', 600]]) {
    if (length < (boxEnd - boxBegin) * 0.9 && length >= leastSpan()) {
      spans.push([name, () => boxEnd - length]);
    }
  }
  const place = document.getElementById('spans');
  for (const [name, begin] of spans) {
    const button = element('button', '', name);
    button.type = 'button';
    button.addEventListener('click', () => showWindow(begin(), boxEnd));
    button.begin = begin;
    place.append(button);
  }
}

function updateTools() {
  document.getElementById('window-text').textContent =
    `${formatTime(Math.round(shown.from))} to ${formatTime(Math.round(shown.to))}, ` +
    formatLength(Math.round(shown.to - shown.from));
  for (const button of document.getElementById('spans').children) {
    const isShown = Math.abs(button.begin() - shown.from) < 1 && Math.abs(boxEnd - shown.to) < 1;
    button.setAttribute('aria-pressed', String(isShown));
  }
}

function makeGroups() {
  const place = document.getElementById('groups');
  const counts = new Map();
  // In the order of the charts.
  for (const { sensor } of document.querySelectorAll('.card')) {
    counts.set(sensor.part, (counts.get(sensor.part) || 0) + 1);
  }
  if (counts.size < 2) {
    return;
  }
  for (const [part, count] of counts) {
    const chip = element('button', 'chip', part);
    chip.type = 'button';
    chip.dataset.part = part;
    chip.append(' ', element('small', '', String(count)));
    chip.setAttribute('aria-pressed', 'false');
    chip.addEventListener('click', () => {
      cards.group = cards.group === part ? null : part;
      for (const other of place.children) {
        other.setAttribute('aria-pressed', String(other === chip && cards.group === part));
      }
      filter();
    });
    place.append(chip);
  }
}

// Every word of the search has to be in the name.
function filter() {
  const words = document.getElementById('search').value.toLowerCase().split(/\s+/);
  const onlyMoved = document.getElementById('only-moved').checked;
  const fits = (sensor) => {
    const name = shortName(sensor.name).toLowerCase();
    const moved = sensor.numbers && sensor.numbers.least !== sensor.numbers.greatest;
    return words.every((word) => name.includes(word)) && (!onlyMoved || moved) &&
      (cards.group === null || sensor.part === cards.group);
  };
  let count = 0;
  for (const group of cards.all) {
    let some = 0;
    for (const sensor of group.sensors) {
      const isShown = Boolean(fits(sensor));
      sensor.card.hidden = !isShown;
      some += isShown ? 1 : 0;
    }
    group.section.hidden = some === 0;
    count += some;
  }
  filterNumbers(fits);
  const all = box.sensors.length;
  document.getElementById('count').textContent =
    count === all ? `${all} sensors` : `${count} of ${all} sensors`;
}

function moveCursor(by) {
  const now = shown.cursor === null ? columnCount - 1 : nearestColumn(shown.cursor) + by;
  const column = Math.min(Math.max(now, 0), columnCount - 1);
  const time = columnStarts[column];
  if (time < shown.from || time > shown.to) {
    showMoment(time);
  }
  setCursor(time);
}

const keys = {
  '+': () => zoomWindow(0.5),
  '=': () => zoomWindow(0.5),
  '-': () => zoomWindow(2),
  0: () => showWindow(boxBegin, boxEnd),
  l: () => document.getElementById('logarithmic').click(),
  '/': () => document.getElementById('search').focus(),
  Escape: () => closeLarge(),
  ArrowLeft: (event) => (event.shiftKey ? moveWindow(-0.25) : moveCursor(-1)),
  ArrowRight: (event) => (event.shiftKey ? moveWindow(0.25) : moveCursor(1)),
};

function connectKeyboard() {
  document.addEventListener('keydown', (event) => {
    const isTyping = event.target.matches('input[type=search]');
    if (event.ctrlKey || event.altKey || event.metaKey || (isTyping && event.key !== 'Escape')) {
      return;
    }
    const isScrolling = event.target.closest('.scroll') && event.key.startsWith('Arrow');
    const act = keys[event.key.length === 1 ? event.key.toLowerCase() : event.key];
    if (act && !isScrolling && columnCount > 0) {
      if (event.key === 'Escape' && isTyping) {
        event.target.blur();
      } else {
        act(event);
      }
      event.preventDefault();
    }
  });
}

function connectTools() {
  const on = (id, kind, act) => document.getElementById(id).addEventListener(kind, act);
  on('search', 'input', filter);
  on('only-moved', 'change', filter);
  on('logarithmic', 'change', (event) => setLogarithmic(event.target.checked));
  on('earlier', 'click', () => moveWindow(-0.25));
  on('later', 'click', () => moveWindow(0.25));
  on('nearer', 'click', () => zoomWindow(0.5));
  on('farther', 'click', () => zoomWindow(2));
  document.getElementById('unusual').addEventListener('click', (event) => {
    const link = event.target.closest('a.sensor');
    if (link) {
      event.preventDefault();
      openLarge(box.sensors[Number(link.dataset.sensor)], link);
    }
  });
}

function redrawInOtherColours() {
  readColours();
  drawAll();
  drawTimeLine();
  if (large.sensor) {
    openLarge(large.sensor, large.opener);
  }
}

// Paper has no windows to scroll: what is not drawn yet is drawn before.
function connectPrinting() {
  const most = 400;
  window.addEventListener('beforeprint', () => {
    document.documentElement.classList.add('printing');
    forgetSizes();
    readColours();
    box.sensors.filter((sensor) => !sensor.card.hidden).slice(0, most)
      .forEach((sensor) => {
        drawCard(sensor);
        writeCard(sensor);
      });
    drawTimeLine();
  });
  window.addEventListener('afterprint', () => {
    document.documentElement.classList.remove('printing');
    forgetSizes();
    redrawInOtherColours();
  });
}

function start() {
  document.documentElement.classList.add('script');
  readColours();
  if (columnCount === 0) {
    document.documentElement.classList.add('nothing');
    startLive();
    return;
  }
  startTimeLine();
  startNumbers();
  makeCards();
  makeGroups();
  makeSpans();
  connectTools();
  connectDragging();
  connectKeyboard();
  connectPrinting();
  filter();
  listeners.window.push(drawAll, updateTools);
  listeners.cursor.push(updateCursors);
  observeCards();
  showWindow(boxBegin, boxEnd);
  window.addEventListener('resize', () => {
    forgetSizes();
    tell('window');
  });
  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', redrawInOtherColours);
  startLive();
}

start();
