import { removeBanners, showBanner } from './banners.mjs';
import { connect } from './connection.mjs';
import { Controls } from './controls.mjs';
import { listenForKeys } from './keys.mjs';
import { Sound } from './sound.mjs';
import { Stage } from './stage.mjs';
import { Statistics } from './statistics.mjs';
import { startTheme } from './theme.mjs';

const byId = (id) => document.getElementById(id);

const startAgain = 'To start again, run linux-capture preview once more and ' +
  'open the address that it prints.';

/** A text with its full stop, unless it has one or is none. */
const sentence = (text) => /[^.!?]$/.test(text) ? `${text}.` : text;

function setState(state, text) {
  byId('state').dataset.state = state;
  byId('state').textContent = text;
}

/** What is going on with a capture that has not ended. */
function showState() {
  if (isPaused) setState('paused', 'Paused');
  else if (isTroubled) setState('troubled', 'Interrupted');
  else setState('live', 'Live');
}

// See again.mjs.
localStorage.setItem('base', location.pathname);

const theme = startTheme(byId('theme'));
let isOver = false;
let isPaused = false;
let isTroubled = false;
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
    byId('source').title = message.source;
    document.title = `${message.source} – linux-capture preview`;
    stage = new Stage(byId('stage'), message.branches, {
      askKeyframe: () => connection.send({ type: 'keyframe' }),
      onFirst: (picture) => lookAtColours(picture, message.encoder),
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
      onPause: (wanted) =>
        connection.send({ type: 'pause', isPaused: wanted }),
      onBitrate: (bitsPerSecond) =>
        connection.send({ type: 'bitrate', bitsPerSecond }),
    });
    listenForKeys({ controls, sound, stage, theme });
    controls.start();
    showPaused(message);
  },
  paused: (message) => showPaused(message),
  stats(message) {
    if (!isOver) statistics.add(message);
  },
  levels: (message) => sound.showLevels(message),
  notice: ({ text }) => showBanner('notice', 'A note from the capture', text),
  troubles({ texts, over }) {
    if (isOver) return;
    isTroubled = texts.length > 0;
    showState();
    removeBanners('recovery');
    removeBanners('trouble', texts);
    for (const text of texts) {
      showBanner('trouble', 'The capture goes on, but …', text,
        { stays: true });
    }
    if (over !== null) showBanner('recovery', 'The capture goes on:', over);
  },
  ended({ isError, title, detail }) {
    setState('ended', isError ? 'Failed' : 'Ended');
    end(isError ? 'error' : 'notice', title, detail);
  },
  video: (packet) => stage.push(packet),
  audio: (packet) => sound.push(packet),
  lost({ isTooMany, reason }) {
    if (isOver) return;
    setState('ended', 'Lost');
    if (isTooMany) {
      isOver = true;
      showBanner('error', 'There is no place for one more page.',
        `${sentence(reason)} Close another one, and load this one again.`);
    } else {
      end('error', 'The connection to linux-capture is gone.',
        reason || 'The program has ended, or has been stopped.');
    }
  },
});

function showPaused(message) {
  if (isOver) return;
  isPaused = message.isPaused;
  controls.showPaused(isPaused);
  showState();
}

/** Nothing is live any more: what stays is the last pictures and counts. */
function end(kind, title, detail) {
  isOver = true;
  removeBanners('trouble');
  removeBanners('recovery');
  showBanner(kind, title, `${sentence(detail)} ${startAgain}`,
    { stays: true });
  document.title = `${byId('state').textContent} – linux-capture preview`;
  controls?.disable();
  statistics?.stop();
  sound?.stop();
}

/** What the software encoder makes is full range, and some ignore that. */
function lookAtColours({ isFullRange }, { isHardware }) {
  if (isFullRange !== false || isHardware) return;
  showBanner('notice', 'The colours are too strong here.', 'This browser ' +
    'takes the full range of the pictures for the limited one. Chromium ' +
    'shows them as they are.');
}

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
