// A page that `vesk serve` made follows its box: samples and events are added as they come, and the
// line below the verdict tells how the connection and the box stand. In a page that `vesk report`
// made nothing of this begins.

const live = {
  source: null,
  columns: [], // of a sample that comes: the numbers of the sensors, -1 for one that is not here
  isMissingSensors: false,
  heard: 0, // when
  retry: 0, // the timer of the next attempt
  failures: 0,
  place: document.getElementById('live'),
  state: { recorded: true, problem: '' },
  isConnected: false,
  numbersChanged: false,
};

// Without a word for so long the connection is lost: the server says one each 15 seconds.
const longestSilence = 45000;
// A page that follows for long is loaded anew, with fewer columns for what is old.
const mostComeValues = 4000000;
const mostCome = 20000;
const shortestReload = 10000;

function tellLive() {
  let kind = 'on';
  let text = 'Follows the box';
  if (!live.isConnected) {
    [kind, text] = ['off', 'Connection lost, trying again'];
  } else if (live.state.problem) {
    [kind, text] = ['off', `The box cannot be read: ${live.state.problem}`];
  } else if (!live.state.recorded) {
    [kind, text] = ['still', 'Nobody records into the box now'];
  }
  live.place.className = `following ${kind}`;
  setText(live.text, live.isMissingSensors ? `${text}; there are new sensors` : text);
  setText(live.newest, columnCount === 0 ? 'no samples'
    : `newest sample ${formatTime(columnStarts[columnCount - 1])} UTC`);
}

// What a reader looks at stays the same when the page is loaded anew.
function keepView() {
  const view = {
    time: Date.now(),
    window: shown.to < boxEnd || shown.from > boxBegin
      ? [shown.from, shown.to, shown.to === boxEnd] : null,
    search: document.getElementById('search').value,
    moved: document.getElementById('only-moved').checked,
    logarithmic: shown.logarithmic,
    group: cards.group,
    large: large.sensor ? large.sensor.name : null,
    scroll: window.scrollY,
  };
  sessionStorage.setItem('view', JSON.stringify(view));
}

function takeView() {
  const kept = sessionStorage.getItem('view');
  sessionStorage.removeItem('view');
  const view = kept === null ? {} : JSON.parse(kept);
  live.loaded = view.time || 0;
  if (kept === null) {
    return;
  }
  document.getElementById('search').value = view.search;
  document.getElementById('only-moved').checked = view.moved;
  document.getElementById('logarithmic').checked = view.logarithmic;
  setLogarithmic(view.logarithmic);
  cards.group = box.sensors.some((sensor) => sensor.part === view.group) ? view.group : null;
  for (const chip of document.getElementById('groups').children) {
    chip.setAttribute('aria-pressed', String(chip.dataset.part === cards.group));
  }
  filter();
  if (view.window) {
    const by = view.window[2] ? boxEnd - view.window[1] : 0;
    showWindow(view.window[0] + by, view.window[1] + by);
  }
  const sensor = box.sensors.find((one) => one.name === view.large);
  if (sensor) {
    openLarge(sensor, sensor.card);
  }
  window.scrollTo(0, view.scroll);
}

function loadAnew() {
  keepView();
  location.reload();
}

// Not at once again: a box that changes all the time must not keep the page from being read.
function loadAnewSoon() {
  if (live.reload) {
    return;
  }
  closeStream();
  const pause = Math.max(0, shortestReload - (Date.now() - live.loaded));
  live.reload = setTimeout(loadAnew, pause);
}

function closeStream() {
  if (live.source) {
    live.source.close();
  }
  live.source = null;
}

function addToNumbers(sensor, value, seconds) {
  if (Number.isNaN(value)) {
    return;
  }
  const all = sensor.numbers;
  if (!all) {
    sensor.numbers = { count: 1, least: value, mean: value, greatest: value, deviation: 0,
      rough: false, first: value, last: value, when_least: [seconds, seconds],
      when_greatest: [seconds, seconds] };
    return;
  }
  const squares = all.deviation === null ? null : all.deviation * all.deviation * all.count;
  const before = value - all.mean;
  all.count++;
  all.mean += before / all.count;
  all.deviation = squares === null ? null
    : Math.sqrt((squares + before * (value - all.mean)) / all.count);
  all.last = value;
  if (!(all.least <= value)) {
    all.least = value;
    all.when_least = [seconds, seconds];
  }
  if (!(all.greatest >= value)) {
    all.greatest = value;
    all.when_greatest = [seconds, seconds];
  }
}

function takeNames(text) {
  const numbers = new Map(box.sensors.map((sensor) => [sensor.name, sensor.number]));
  const names = JSON.parse(text);
  live.columns = names.map((name) => (numbers.has(name) ? numbers.get(name) : -1));
  live.isMissingSensors = live.columns.includes(-1);
  if (live.isMissingSensors || columnCount === 0) {
    // With all of them, in the order of the box.
    loadAnewSoon();
  }
}

function addSample(text) {
  const space = text.indexOf(' ');
  const seconds = Number(text.slice(0, space));
  const packed = unpack(text.slice(space + 1));
  const values = new Float32Array(box.sensors.length).fill(NaN);
  live.columns.forEach((number, i) => {
    if (number >= 0) {
      values[number] = packed[i];
      addToNumbers(box.sensors[number], packed[i], seconds);
    }
  });
  const before = columnCount > 0 ? columnEnds[columnCount - 1] : seconds;
  const followsGap = box.step > 0 && seconds - before > 2 * box.step;
  if (followsGap) {
    addHappening({ time: before, end: seconds, type: 'gap',
      text: `${formatLength(seconds - before)}: no samples` });
  }
  const wasAtEnd = shown.to >= boxEnd;
  const wasWhole = wasAtEnd && shown.from <= boxBegin;
  const end = boxEnd;
  addColumn(seconds, values, followsGap);
  if (wasAtEnd) {
    const by = boxEnd - end;
    showWindow(wasWhole ? boxBegin : shown.from + by, boxEnd);
  }
  // What waited for a sample comes as an event of its own now.
  document.querySelectorAll('table.events tr.waits').forEach((row) => row.remove());
  live.numbersChanged = true;
  if (come.length > Math.min(mostCome, mostComeValues / box.sensors.length)) {
    loadAnewSoon();
  }
}

function takeSample(event) {
  addSample(event.data);
  tell('window');
  tell('cursor');
  tellLive();
}

function takeEvent(event) {
  const { time, type, text } = JSON.parse(event.data);
  addHappening({ time, type, text });
  tell('window');
}

function takeState(event) {
  const state = JSON.parse(event.data);
  live.state = state;
  const verdict = document.getElementById('verdict');
  setText(verdict, state.verdict);
  verdict.className = `verdict ${state.kind}`;
  const health = document.getElementById('health');
  if (state.health !== '') {
    const isFile = health.className === 'unknown';
    health.className = state.whole ? 'good' : isFile ? 'unknown' : 'bad';
    setText(health.querySelector('span'), state.health);
  }
  tellLive();
}

// What the stream was told to go on behind: the browser remembers it only while it tries again
// itself.
let lastPlace = box.follows;

function connect() {
  clearTimeout(live.retry);
  closeStream();
  const source = new EventSource(`events?after=${encodeURIComponent(lastPlace)}`);
  const on = (kind, act) => source.addEventListener(kind, (event) => {
    live.heard = Date.now();
    live.failures = 0;
    if (!live.isConnected) {
      live.isConnected = true;
      tellLive();
    }
    if (event.lastEventId) {
      lastPlace = event.lastEventId;
    }
    act(event);
  });
  live.source = source;
  live.heard = Date.now();
  on('names', (event) => takeNames(event.data));
  on('sample', takeSample);
  on('event', takeEvent);
  on('state', takeState);
  on('alive', () => {});
  on('reload', loadAnewSoon);
  source.onerror = () => tryAgain();
}

// The browser would try again by itself after some errors only.
function tryAgain() {
  closeStream();
  live.isConnected = false;
  tellLive();
  clearTimeout(live.retry);
  if (!live.reload) {
    live.retry = setTimeout(connect, Math.min(1000 * 2 ** live.failures, 15000));
    live.failures++;
  }
}

// The numbers in the table: those in view, once a second.
function writeNumbers() {
  if (!live.numbersChanged) {
    return;
  }
  live.numbersChanged = false;
  const frame = document.querySelector('#numbers .scroll').getBoundingClientRect();
  if (frame.bottom < 0 || frame.top > window.innerHeight) {
    live.numbersChanged = true;
    return;
  }
  for (const row of numberTableRows) {
    const sensor = box.sensors[Number(row.dataset.sensor)];
    const all = sensor.numbers;
    if (all && !row.hidden) {
      const mark = all.rough && all.deviation !== null ? '~' : '';
      [formatValue(all.last, sensor), formatValue(all.least, sensor),
        formatValue(all.mean, sensor), formatValue(all.greatest, sensor),
        mark + formatValue(all.deviation, sensor), String(all.count)]
        .forEach((text, i) => setText(row.children[1 + i], text));
    }
  }
}

function startLive() {
  if (box.follows === undefined) {
    return;
  }
  const again = element('button', 'again', 'Load anew');
  again.type = 'button';
  again.title = 'What stands above and below the charts is as old as the page';
  again.addEventListener('click', loadAnew);
  live.text = element('span');
  // Only this is read aloud when it changes: a new time each second would drown out all else.
  live.text.setAttribute('role', 'status');
  live.newest = element('span');
  live.place.append(element('i', 'dot'), live.text, live.newest, again);
  live.place.hidden = false;
  live.loaded = 0;
  if (columnCount > 0) {
    takeView();
  }
  box.sensors.forEach((sensor, number) => {
    sensor.number = number;
  });
  connect();
  setInterval(() => {
    if (live.source && Date.now() - live.heard > longestSilence) {
      tryAgain();
    }
    if (columnCount > 0) {
      writeNumbers();
    }
  }, 1000);
  window.addEventListener('pagehide', closeStream);
  window.addEventListener('pageshow', (event) => {
    if (event.persisted) {
      connect();
    }
  });
}
