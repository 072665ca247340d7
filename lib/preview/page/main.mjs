import { showBanner } from './banners.mjs';
import { connect } from './connection.mjs';
import { Controls } from './controls.mjs';
import { listenForKeys } from './keys.mjs';
import { Sound } from './sound.mjs';
import { Stage } from './stage.mjs';
import { Statistics } from './statistics.mjs';
import { startTheme } from './theme.mjs';

const byId = (id) => document.getElementById(id);

function setState(state, text) {
  byId('state').dataset.state = state;
  byId('state').textContent = text;
}

const theme = startTheme(byId('theme'));
let isOver = false;
let stage = null;
let statistics = null;
let controls = null;
let sound = null;

if (!('VideoDecoder' in window)) {
  showBanner('error', 'This browser cannot show the pictures.',
    'It has no WebCodecs; recent versions of the large browsers have.');
}

const connection = connect({
  hello(message) {
    byId('source').textContent = message.source;
    document.title = `${message.source} – linux-capture preview`;
    stage = new Stage(byId('stage'), message.branches, {
      askKeyframe: () => connection.send({ type: 'keyframe' }),
    });
    statistics = new Statistics(byId('plots'), stage);
    sound = new Sound(message.sound, { onChange: watch });
    controls = new Controls(message, {
      onView(view) {
        stage.show(view);
        watch();
      },
      onLayers: (most) => stage.setMostLayer(most),
      onKeyframe: () => connection.send({ type: 'keyframe' }),
      onBitrate: (bitsPerSecond) =>
        connection.send({ type: 'bitrate', bitsPerSecond }),
    });
    listenForKeys({ controls, sound, stage, theme });
    controls.start();
    setState('live', 'Live');
  },
  stats: (message) => statistics.add(message),
  levels: (message) => sound.showLevels(message),
  notice: ({ text }) => showBanner('notice', 'A note from the capture', text),
  ended({ isError, title, detail }) {
    isOver = true;
    setState('ended', isError ? 'Failed' : 'Ended');
    showBanner(isError ? 'error' : 'notice', title, detail);
    controls.disable();
    sound.stop();
  },
  video: (packet) => stage.push(packet),
  audio: (packet) => sound.push(packet),
  lost(reason) {
    if (isOver) return;
    setState('ended', 'Lost');
    showBanner('error', 'The connection to linux-capture is gone.',
      reason || 'The program has ended, or has been stopped.');
    controls?.disable();
    sound?.stop();
  },
});

/** A page that nobody sees asks for no pictures. */
function watch() {
  connection.send({
    type: 'watch',
    branches: document.hidden ? [] : stage.visible,
    sound: sound.isListening,
  });
}

document.addEventListener('visibilitychange', () => {
  if (stage === null || isOver) return;
  stage.restart();
  watch();
});
