import { mkdir, mkdtemp, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { collectText, endHelper, startHelper } from './processes.mjs';
import { until } from './until.mjs';

const port = 18_088;
const library = '/usr/lib/x86_64-linux-gnu/janus';
const room = 1;
// In which there are no pictures of H.264.
const otherRoom = 2;

/** What it needs to take pictures of H.264 and sound of Opus in one room. */
const settings = (folder) => ({
  'janus.jcfg': `general: {
  configs_folder = "${folder}"
  plugins_folder = "${library}/plugins"
  transports_folder = "${library}/transports"
  debug_level = 4
  log_to_stdout = true
  session_timeout = 0
}
nat: { ice_ignore_list = "lo" }
plugins: { disable = "libjanus_audiobridge.so,libjanus_duktape.so,\
libjanus_echotest.so,libjanus_lua.so,libjanus_nosip.so,\
libjanus_recordplay.so,libjanus_sip.so,libjanus_streaming.so,\
libjanus_textroom.so,libjanus_videocall.so,libjanus_voicemail.so" }
transports: { disable = "libjanus_mqtt.so,libjanus_nanomsg.so,\
libjanus_pfunix.so,libjanus_rabbitmq.so,libjanus_websockets.so" }
`,
  'janus.transport.http.jcfg': `general: {
  http = true
  ip = "127.0.0.1"
  port = ${port}
}
`,
  'janus.plugin.videoroom.jcfg': `room-${room}: {
  publishers = 4
  bitrate = 8000000
  audiocodec = "opus"
  videocodec = "h264"
  h264_profile = "42e01f"
  transport_wide_cc_ext = true
}
room-${otherRoom}: {
  publishers = 4
  audiocodec = "opus"
  videocodec = "vp8"
}
`,
});

async function ask(at, message) {
  const response = await fetch(`http://127.0.0.1:${port}/janus${at}`, {
    method: message === undefined ? 'GET' : 'POST',
    body: message === undefined ? undefined
      : JSON.stringify({ ...message, transaction: `${Math.random()}` }),
  });
  return response.json();
}

/** One user of the room: requests, and what comes back to them. */
class Handle {
  constructor(session, id) {
    this.session = session;
    this.id = id;
  }

  static async open() {
    const { data: { id: session } } = await ask('', { janus: 'create' });
    const { data: { id } } = await ask(`/${session}`,
      { janus: 'attach', plugin: 'janus.plugin.videoroom' });
    return new Handle(session, id);
  }

  /** A request with what its event answers, as { data, jsep }. */
  async request(body, jsep) {
    const answer = await ask(`/${this.session}/${this.id}`,
      { janus: 'message', body, jsep });
    if (answer.janus === 'success') return answer.plugindata;
    for (;;) {
      const event = await ask(`/${this.session}?maxev=1`);
      if (event.janus === 'event') {
        const { data } = event.plugindata;
        if (data.error !== undefined) throw new Error(data.error);
        return { data, jsep: event.jsep };
      }
    }
  }

  close() {
    return ask(`/${this.session}`, { janus: 'destroy' });
  }
}

/** Starts a conference server with one room. */
export async function startJanus() {
  const folder = await mkdtemp(path.join(tmpdir(), 'linux-capture-janus-'));
  await mkdir(folder, { recursive: true });
  for (const [name, text] of Object.entries(settings(folder))) {
    await writeFile(path.join(folder, name), text);
  }
  const child = startHelper('janus', ['--configs-folder', folder],
    { stdio: ['ignore', 'pipe', 'pipe'] });
  const output = collectText(child.stdout);
  collectText(child.stderr);
  const stop = async () => {
    await endHelper(child);
    await rm(folder, { recursive: true, force: true });
  };
  try {
    await until(() => ask('/info').then(() => true, () => false),
      'the conference server');
  } catch (error) {
    await stop();
    throw new Error(`${error.message}\n${output.text}`);
  }
  let publisher;
  let publisherId;
  return {
    stop,
    output,
    /** SIGSTOP, SIGCONT or SIGKILL. */
    signal: (name) => child.kill(name),
    /** Takes an offer into the room, and gives the answer. */
    async publish(offer, { isOtherRoom = false } = {}) {
      publisher = await Handle.open();
      const { data } = await publisher.request({ request: 'join',
        ptype: 'publisher', room: isOtherRoom ? otherRoom : room });
      publisherId = data.id;
      const { jsep } = await publisher.request(
        { request: 'configure', audio: true, video: true },
        { type: 'offer', sdp: offer });
      return jsep.sdp;
    },
    /** A subscriber to what came last: its offer, and what to do then. */
    async subscribe() {
      const handle = await Handle.open();
      const { jsep } = await handle.request({
        request: 'join', ptype: 'subscriber', room,
        streams: [{ feed: publisherId }],
      });
      return {
        offer: jsep.sdp,
        start: (sdp) => handle.request({ request: 'start' },
          { type: 'answer', sdp }),
        /** 0 is the smallest picture. */
        choose: (substream) => handle.request(
          { request: 'configure', streams: [{ mid: '0', substream }] }),
        close: () => handle.close(),
      };
    },
  };
}
