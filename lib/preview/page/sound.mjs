import { Listener } from './listener.mjs';
import { Meter } from './meters.mjs';

const byId = (id) => document.getElementById(id);

const mixName = 'All together';

/** The meters, and the choice to listen. */
export class Sound {
  #mix = null;
  #sources = [];
  #listener = null;
  #onChange;

  /**
   * `sound` is null for a capture without sound. What cannot be listened to
   * has the reason in its place.
   */
  constructor(sound, { onChange }) {
    this.#onChange = onChange;
    if (sound === null) {
      byId('sound-hint').textContent = 'This capture has no sound; ' +
        '--system-audio, --app or --microphone captures it too.';
      return;
    }
    this.#mix = new Meter(byId('meters'), mixName);
    byId('sound-hint').textContent = sound.reason ?? '';
    byId('listening').hidden = !sound.canListen;
    const button = byId('listen');
    const volume = byId('volume');
    button.addEventListener('click', () => this.toggle());
    volume.addEventListener('input', () =>
      this.#listener?.setVolume(volume.valueAsNumber / 100));
  }

  get isListening() {
    return this.#listener !== null;
  }

  toggle() {
    if (byId('listening').hidden || byId('listen').disabled) return;
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

  showLevels({ mix, sources: all }) {
    this.#mix.show(mix.peak, mix.rms);
    // One source alone is all that there is.
    const sources = all.length === 1 ? [] : all;
    this.#mix.setName(all.length === 1 ? all[0].name ?? mixName : mixName);
    while (this.#sources.length > sources.length) this.#sources.pop().remove();
    for (const [index, { name: given, peak, mean }] of sources.entries()) {
      const name = given ?? `Source ${index + 1}`;
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
