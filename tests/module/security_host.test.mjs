import assert from 'node:assert/strict';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { withHost } from '../support/host.mjs';
import { portalRequest, withAudio } from
  '../support/pipewire_requests.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startPlayer, startVideo } from
  '../support/pipewire_sources.mjs';
import { until } from '../support/until.mjs';

const size = { width: 160, height: 90 };
const things = {};
usePipeWire({
  withSink: true,
  async prepare(session) {
    things.session = session;
    things.screen = await startVideo(session, size);
    things.holder = await startHolder(session);
    things.tone = await startPlayer(session, { name: 'tone', hertz: 440 });
    return [things.screen, things.tone,
      { stop: () => things.holder.stop() }];
  },
});

const requestWith = (fd) => withAudio(
  portalRequest({ fd, node: things.screen.node, ...size }),
  'process', [things.tone.serial]);

test('no descriptor of a capture reaches a program that the host starts',
  async () => {
    await withHost({}, async (host) => {
      const look = () => host.call(async () => {
        const { execFileSync } = await import('node:child_process');
        const { readdirSync, readFileSync, readlinkSync } = await import('node:fs');
        const own = readdirSync('/proc/self/fd').flatMap((fd) => {
          try {
            const text = readFileSync(`/proc/self/fdinfo/${fd}`, 'utf8');
            const flags = parseInt(/^flags:\s*(\d+)$/m.exec(text)[1], 8);
            return [{
              fd: Number(fd),
              target: readlinkSync(`/proc/self/fd/${fd}`),
              isInherited: (flags & 0o2000000) === 0,
            }];
          } catch {
            return [];  // the one that listed the folder
          }
        });
        return {
          own,
          started: execFileSync('ls', ['/proc/self/fd'],
            { encoding: 'utf8' }).trim().split('\n').length,
        };
      });
      const before = await look();
      const fd = await host.call(({ addon: module }, pid, held) =>
        module.duplicateFdFromPid(pid, held),
      things.holder.pid, things.holder.fd);
      await host.setup(requestWith(fd));
      await host.packets();
      await host.call(async ({ collected, until: wait }) => {
        await wait(() => collected.audio.length > 5, 'sound');
      });
      const during = await look();
      assert.ok(during.own.length > before.own.length + 5,
        'a capture opens descriptors');
      const inherited = ({ own }) => own
        .filter(({ isInherited }) => isInherited)
        .map(({ fd: number, target }) => `${number} ${target}`);
      assert.deepEqual(inherited(during), inherited(before));
      assert.equal(during.started, before.started);
      await host.stop();
    });
  });

test('a capture outlives the close of the descriptor that it was given',
  async () => {
    await withHost({}, async (host) => {
      for (let time = 0; time < 2; time += 1) {
        const fd = await host.call(({ addon: module }, pid, held) =>
          module.duplicateFdFromPid(pid, held),
        things.holder.pid, things.holder.fd);
        await host.setup(requestWith(fd));
        await host.packets();
        await host.call(async (_tools, number) => {
          (await import('node:fs')).closeSync(number);
        }, fd);
        await host.packets(20);
        assert.deepEqual(await host.errorEvents(), []);
        await host.stop();
        // The stop closes nothing that the host has since opened.
        assert.equal(await host.call(async (_tools, number) => {
          const { closeSync, fstatSync, openSync } = await import('node:fs');
          const reused = openSync('/dev/null');
          fstatSync(reused);
          closeSync(reused);
          return reused >= 0 && number >= 0;
        }, fd), true);
        await things.holder.stop();
        things.holder = await startHolder(things.session);
      }
    });
  });

const hostile = [
  '" ! filesrc location=/etc/passwd ! fakesink',
  "' ! filesrc location=/etc/passwd ! fakesink '",
  ' ! udpsink host=192.0.2.1 ',
  '$(id) `id` %s%n \\ \n\r\t; # \u0000 \ud800',
  'x'.repeat(100_000),
];

const number = '(?:0|-?[1-9]\\d*)';
const grammarOf = (text) => new RegExp('^' + text
  .replace(/[.*+?^${}()|[\]\\/]/g, '\\$&').replaceAll('#', number) + '$');

const videoGrammar = grammarOf(
  'pipewiresrc fd=# path=# do-timestamp=true on-disconnect=2 ! ' +
  'queue max-size-buffers=4 leaky=downstream ! videoconvert ! ' +
  'video/x-raw,format=I420 ! tee name=videoTee ' +
  'videoTee. ! queue max-size-buffers=4 leaky=downstream ! ' +
  'videoscale ! videorate ! ' +
  'video/x-raw,format=I420,width=#,height=#,framerate=#/1 ! ' +
  'appsink name=videoSink# emit-signals=true sync=false max-buffers=4 ' +
  'drop=true ');

const format = 'audioconvert ! audioresample ! audio/x-raw,format=S16LE,' +
  'rate=48000,channels=2,layout=interleaved ! ';
const audioGrammar = grammarOf(
  `audiomixer name=mix ! ${format}` +
  'appsink name=audioSink emit-signals=true sync=false max-buffers=8 ' +
  'drop=true ' +
  'pipewiresrc target-object=# do-timestamp=true on-disconnect=2 ! ' +
  'tee name=audioSourceTee# audioSourceTee#. ! ' +
  `queue max-size-buffers=8 leaky=downstream ! ${format}` +
  'queue max-size-buffers=8 leaky=downstream ! mix. audioSourceTee#. ! ' +
  `queue max-size-buffers=4 leaky=downstream ! ${format}` +
  'appsink name=audioProbeSink# emit-signals=true sync=false max-buffers=2 ' +
  'drop=true ');

test('no text of a request gets into a launch text', async () => {
  for (const text of hostile) {
    const request = requestWith(
      addon.duplicateFdFromPid(things.holder.pid, things.holder.fd));
    Object.assign(request.portal,
      { label: text, streamId: text, mappingId: text });
    request.linuxAudio.pipeWireAudioSources = [{
      pipeWireTargetObject: things.tone.serial,
      applicationName: text,
      processBinary: text,
      nodeName: text,
      mediaName: text,
      targetObject: text,
    }];
    const { packets, audio } = collect();
    addon.captureSetup(request);
    await until(() => packets.length > 2 && audio.length > 2, 'packets');
    const stats = addon.getStats();
    assert.match(stats.videoPipeline, videoGrammar);
    assert.match(stats.audioPipeline, audioGrammar);
    assert.equal(stats.audioSourceStats[0].nodeName, text.toWellFormed());
    addon.stopCapture();
    await things.holder.stop();
    things.holder = await startHolder(things.session);
  }
});

test('hostile text where a word is expected is refused', () => {
  const paths = [['source', 'backend'], ['source', 'kind'],
    ['capture', 'encoderRequirement'], ['capture', 'topology', 'mode'],
    ['audio', 'mode'], ['linuxAudio', 'mode']];
  for (const text of hostile) {
    for (const path of paths) {
      const request = requestWith(0);
      const last = path.at(-1);
      path.slice(0, -1).reduce((object, key) => object[key], request)[last] =
        text;
      assert.throws(() => addon.captureSetup(request), { name: 'Error' });
      assert.equal(addon.isCapturing(), false);
    }
  }
});
