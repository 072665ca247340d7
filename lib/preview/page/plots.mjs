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

/** A value with its name, which the colour tells those who see it. */
function figure(name, value) {
  const entry = document.createElement('div');
  const term = document.createElement('dt');
  term.className = 'said';
  term.textContent = name;
  const text = document.createElement('dd');
  text.append(value);
  entry.append(term, text);
  return entry;
}

/** A small plot of the last minute, with a line for each branch. */
export class Plot {
  #unit;
  #digits;
  #title;
  #image;
  #top;
  #series;

  /** `names` are those of the branches. */
  constructor(place, names, title, { unit, digits }) {
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
    const list = element.querySelector('.values');
    this.#series = names.map((name, branch) => {
      const line = document.createElementNS(svg, 'path');
      line.setAttribute('class', 'line');
      line.dataset.branch = branch;
      this.#image.append(line);
      const value = document.createElement('b');
      value.dataset.branch = branch;
      list.append(figure(name, value));
      return { name, line, value, values: [] };
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
    this.#describe();
  }

  /** Nothing is true of this moment any more; the lines stay. */
  stop() {
    for (const { value } of this.#series) value.textContent = this.#text(null);
    this.#describe();
  }

  #describe() {
    const figures = this.#series.map(({ name, value }) =>
      `${name} ${value.textContent}`).join(', ');
    this.#image.setAttribute('aria-label',
      `${this.#title} of the last minute, now ${figures} ${this.#unit}`);
  }

  #text(value) {
    return value === null ? '–' : value.toFixed(this.#digits);
  }
}
