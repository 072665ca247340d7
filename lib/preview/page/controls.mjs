const layerChoices = [
  { most: 0, text: '0', words: 'layer 0' },
  { most: 1, text: '0–1', words: 'layers 0–1' },
  { most: 2, text: '0–2', words: 'layers 0–2' },
];

const byId = (id) => document.getElementById(id);

const megabits = (bitsPerSecond) =>
  `${(bitsPerSecond / 1e6).toFixed(1)} Mbit/s`;

/**
 * Fills a fieldset with radio buttons; `choices` have `value` and `text`. One
 * choice is none, and is not shown.
 */
function radios(fieldset, choices, checked, onChange) {
  fieldset.hidden = choices.length < 2;
  const inputs = choices.map(({ value, text, words }) => {
    const input = document.createElement('input');
    input.type = 'radio';
    input.name = fieldset.id;
    input.value = value;
    input.checked = value === checked;
    input.setAttribute('aria-label', words);
    input.addEventListener('change', () => onChange(value));
    const face = document.createElement('span');
    face.textContent = text;
    const label = document.createElement('label');
    label.append(input, face);
    fieldset.append(label);
    return input;
  });
  return {
    choose(value) {
      const input = inputs.find((entry) => entry.value === String(value));
      if (input === undefined || input.disabled) return;
      input.checked = true;
      onChange(value);
    },
    get index() {
      return inputs.findIndex((input) => input.checked);
    },
    disable() {
      fieldset.disabled = true;
    },
  };
}

/** What can be chosen and asked for. */
export class Controls {
  #actions;
  #view;
  #layers;
  #layerValues;
  #isOver = false;
  #isPaused = false;

  constructor({ branches, layers, encoder, bitrate }, actions) {
    this.#actions = actions;
    this.#view = radios(byId('view'), [
      ...branches.length === 1 ? []
        : [{ value: 'all', text: 'All', words: 'all branches' }],
      ...branches.map(({ branch }) => ({
        value: branch,
        text: branch === 0 ? 'Primary' : String(branch),
        words: branch === 0 ? 'the primary branch' : `branch ${branch}`,
      })),
    ], branches.length === 1 ? 0 : 'all', actions.onView);
    this.#layerValues = layerChoices.slice(0, layers).map(({ most }) => most);
    this.#layers = radios(byId('layers'), layerChoices.slice(0, layers)
      .map(({ most, ...choice }) => ({ value: most, ...choice })),
    layers - 1, actions.onLayers);
    byId('layers-hint').textContent = layers === 1 ? ''
      : 'Fewer layers are fewer pictures a second, out of the same stream.';
    byId('choices').hidden = branches.length === 1 && layers === 1;
    byId('encoder').textContent = `${encoder.name || 'unknown'}, in ${
      encoder.isHardware ? 'hardware' : 'software'}`;
    byId('keyframe').addEventListener('click', () => this.askKeyframe());
    byId('pause').addEventListener('click', () => this.togglePause());
    this.#setUpBitrate(bitrate);
    byId('branch-keys').replaceChildren(...branches.flatMap(({ branch }) => {
      const key = document.createElement('kbd');
      key.textContent = branch;
      return [key, ' '];
    }));
  }

  /** A software encoder keeps the bitrate that it was started with. */
  #setUpBitrate({ isSupported, bitsPerSecond }) {
    byId('bitrate-choice').hidden = !isSupported;
    if (!isSupported) return;
    const slider = byId('bitrate');
    byId('bitrate-value').textContent = megabits(bitsPerSecond);
    const step = 100_000;
    slider.min = step;
    slider.max = Math.ceil(bitsPerSecond * 3 / step) * step;
    slider.step = step;
    slider.value = bitsPerSecond;
    slider.addEventListener('input', () => {
      byId('bitrate-value').textContent = megabits(slider.valueAsNumber);
    });
    slider.addEventListener('change', () =>
      this.#actions.onBitrate(slider.valueAsNumber));
  }

  /** Makes the first choice take effect. */
  start() {
    const view = document.querySelector('input[name=view]:checked').value;
    this.#actions.onView(view === 'all' ? view : Number(view));
  }

  chooseView(view) {
    this.#view.choose(view);
  }

  nextLayers() {
    const { length } = this.#layerValues;
    this.#layers.choose(this.#layerValues[(this.#layers.index + 1) % length]);
  }

  askKeyframe() {
    if (!this.#isOver) this.#actions.onKeyframe();
  }

  togglePause() {
    if (!this.#isOver) this.#actions.onPause(!this.#isPaused);
  }

  /** How it is with the capture, whoever asked for it. */
  showPaused(isPaused) {
    this.#isPaused = isPaused;
    byId('pause').setAttribute('aria-pressed', isPaused);
  }

  disable() {
    this.#isOver = true;
    this.#view.disable();
    this.#layers.disable();
    byId('pause').disabled = true;
    byId('keyframe').disabled = true;
    byId('bitrate').disabled = true;
  }
}
