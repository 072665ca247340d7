const svg = 'http://www.w3.org/2000/svg';

// A minute, at two messages a second.
const points = 120;
const height = 100;

/** The next of 1, 2, 5, 10, 20, … that is not below a value. */
function roundUp(value) {
  const power = 10 ** Math.floor(Math.log10(value));
  return [1, 2, 5, 10].find((step) => step * power >= value) * power;
}

function pathOf(values, top) {
  let hasGap = true;
  return values.map((value, index) => {
    if (value === null) {
      hasGap = true;
      return '';
    }
    const command = hasGap ? 'M' : 'L';
    hasGap = false;
    const x = points - values.length + index;
    return `${command}${x} ${(height * (1 - value / top)).toFixed(1)}`;
  }).join('');
}

/** A small plot of the last minute, with a line for each branch. */
export class Plot {
  #unit;
  #digits;
  #title;
  #image;
  #top;
  #series;

  constructor(place, count, title, { unit, digits }) {
    this.#unit = unit;
    this.#digits = digits;
    this.#title = title;
    const content = document.getElementById('plot').content.cloneNode(true);
    const element = content.querySelector('.plot');
    element.querySelector('.title').textContent = `${title}, ${unit}`;
    this.#image = element.querySelector('svg');
    this.#top = element.querySelector('.top');
    const grid = document.createElementNS(svg, 'path');
    grid.setAttribute('class', 'grid');
    grid.setAttribute('d', 'M0 50H119');
    this.#image.append(grid);
    this.#series = Array.from({ length: count }, (_, branch) => {
      const line = document.createElementNS(svg, 'path');
      line.setAttribute('class', 'line');
      line.dataset.branch = branch;
      this.#image.append(line);
      const value = document.createElement('b');
      value.dataset.branch = branch;
      element.querySelector('.values').append(value);
      return { line, value, values: [] };
    });
    place.append(content);
  }

  /** One value for each branch; null where there is none. */
  add(values) {
    for (const [branch, { values: kept }] of this.#series.entries()) {
      kept.push(values[branch]);
      if (kept.length > points) kept.shift();
    }
    const most =
      Math.max(...this.#series.flatMap(({ values: kept }) => kept), 0);
    const top = roundUp(Math.max(most * 1.05, 1));
    for (const { line, value, values: kept } of this.#series) {
      line.setAttribute('d', pathOf(kept, top));
      value.textContent = this.#text(kept.at(-1));
    }
    this.#top.textContent = top;
    this.#image.setAttribute('aria-label', `${this.#title}: ${
      this.#series.map(({ values: kept }, branch) =>
        `branch ${branch} ${this.#text(kept.at(-1))}`).join(', ')} ${
      this.#unit}`);
  }

  #text(value) {
    return value === null ? '–' : value.toFixed(this.#digits);
  }
}
