import { Listener } from './listener.mjs';
import { Meter } from './meters.mjs';

const byId = (id) => document.getElementById(id);

/** The meters, and the choice to listen. */
export class Sound {
  #mix = null;
  #sources = [];
  #listener = null;
  #onChange;

  /** `sound` is null for a capture without sound. */
  constructor(sound, { onChange }) {
    this.#onChange = onChange;
    if (sound === null) {
      byId('sound-hint').textContent = 'This capture has no sound.';
      return;
    }
    this.#mix = new Meter(byId('meters'), 'All together');
    byId('sound-hint').textContent = sound.reason ?? '';
    byId('listening').hidden = false;
    const button = byId('listen');
    const volume = byId('volume');
    button.disabled = !sound.canListen;
    volume.disabled = !sound.canListen;
    button.addEventListener('click', () => this.toggle());
    volume.addEventListener('input', () =>
      this.#listener?.setVolume(volume.valueAsNumber / 100));
  }

  get isListening() {
    return this.#listener !== null;
  }

  toggle() {
    if (this.#mix === null || byId('listen').disabled) return;
    if (this.isListening) {
      this.#listener.stop();
      this.#listener = null;
    } else {
      this.#listener = new Listener(byId('volume').valueAsNumber / 100);
    }
    this.#showButton();
    this.#onChange();
  }

  #showButton() {
    byId('listen').setAttribute('aria-pressed', this.isListening);
    byId('listen').textContent = this.isListening ? 'Listening' : 'Listen';
  }

  push(packet) {
    this.#listener?.push(packet);
  }

  showLevels({ mix, sources }) {
    this.#mix.show(mix.peak, mix.rms);
    while (this.#sources.length > sources.length) this.#sources.pop().remove();
    for (const [index, { name, peak, mean }] of sources.entries()) {
      this.#sources[index] ??= new Meter(byId('meters'), name);
      this.#sources[index].setName(name);
      this.#sources[index].show(peak, mean);
    }
  }

  stop() {
    this.#mix?.clear();
    for (const meter of this.#sources) meter.clear();
    this.#listener?.stop();
    this.#listener = null;
    this.#showButton();
    byId('listen').disabled = true;
    byId('volume').disabled = true;
  }
}
