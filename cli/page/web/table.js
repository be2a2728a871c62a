// The table of numbers: a click on a heading sorts it, and the search shortens it.

const numberTableRows = [...document.querySelectorAll('table.numbers tbody tr')];

function sortKey(column) {
  const parts = [null, 'last', 'least', 'mean', 'greatest', 'deviation', 'count'];
  return (row) => {
    const sensor = box.sensors[Number(row.dataset.sensor)];
    if (column === 0) {
      return Number(row.dataset.sensor);
    }
    const value = sensor.numbers ? sensor.numbers[parts[column]] : null;
    return value === null ? -Infinity : value;
  };
}

function sortNumbers(heading, column) {
  const body = document.querySelector('table.numbers tbody');
  const isDown = heading.getAttribute('aria-sort') === 'descending';
  const sign = column === 0 || isDown ? 1 : -1;
  const key = sortKey(column);
  numberTableRows.sort((a, b) => {
    const difference = key(a) - key(b);
    return Number.isNaN(difference) ? 0 : sign * difference;
  });
  body.append(...numberTableRows);
  for (const other of heading.parentElement.children) {
    other.removeAttribute('aria-sort');
  }
  heading.setAttribute('aria-sort', sign > 0 ? 'ascending' : 'descending');
}

function filterNumbers(fits) {
  for (const row of numberTableRows) {
    row.hidden = !fits(box.sensors[Number(row.dataset.sensor)]);
  }
}

function startNumbers() {
  document.querySelectorAll('table.numbers thead th').forEach((heading, column) => {
    const button = element('button', 'sort', heading.textContent);
    button.type = 'button';
    button.addEventListener('click', () => sortNumbers(heading, column));
    heading.textContent = '';
    heading.append(button);
  });
  for (const row of numberTableRows) {
    const name = row.firstElementChild;
    const button = element('button', 'sensor', name.textContent);
    button.type = 'button';
    name.textContent = '';
    name.append(button);
  }
  document.querySelector('table.numbers').addEventListener('click', (event) => {
    const button = event.target.closest('button.sensor');
    if (button) {
      openLarge(box.sensors[Number(button.closest('tr').dataset.sensor)], button);
    }
  });
}
