import assert from 'node:assert/strict';
import { existsSync, statSync } from 'node:fs';
import { describe, test } from 'node:test';
import { addSink, startPipeWire } from '../support/pipewire.mjs';
import { readObjects } from '../support/pipewire_objects.mjs';
import { startPlayer, startVideo } from '../support/pipewire_sources.mjs';

const ownUid = process.getuid();
const nobody = { uid: 65534, gid: 65534 };

// A test that runs as root can also be anybody else; one that does not is the
// ordinary user already.
const users = ownUid === 0
  ? { root: undefined, 'an ordinary user': nobody }
  : { 'an ordinary user': undefined };

for (const [name, user] of Object.entries(users)) {
  describe(`a private PipeWire session as ${name}`, () => {
    test('starts, plays, offers a screen and ends, within seconds',
      { timeout: 60_000 }, async () => {
        const session = await startPipeWire({ user });
        const processes = [session.daemon.child.pid, session.manager.child.pid];
        try {
          for (const pid of processes) {
            assert.equal(statSync(`/proc/${pid}`).uid, user?.uid ?? ownUid);
          }
          assert.ok(session.socket.startsWith(session.root));
          assert.equal(statSync(session.environment.XDG_RUNTIME_DIR).mode &
            0o777, 0o700);

          const sink = await addSink(session);
          assert.equal(sink.mediaClass, 'Audio/Sink');
          const player = await startPlayer(session,
            { name: 'tone', hertz: 440, seconds: 10 });
          assert.equal(player.node.mediaClass, 'Stream/Output/Audio');
          const video = await startVideo(session);
          assert.equal(video.node.mediaClass, 'Video/Source');
          await video.stop();
          await player.stop();
        } finally {
          await session.stop();
        }
        assert.ok(!existsSync(session.root), 'its files are gone');
        for (const pid of processes) {
          assert.ok(!existsSync(`/proc/${pid}`), 'its processes are gone');
        }
      });
  });
}

test('two sessions do not know of each other', async () => {
  const sessions = [await startPipeWire(), await startPipeWire()];
  try {
    const video = await startVideo(sessions[0], { name: 'first' });
    const { nodeNamed } = await readObjects(sessions[1]);
    assert.equal(nodeNamed('first'), undefined);
    await video.stop();
  } finally {
    for (const session of sessions) await session.stop();
  }
});
