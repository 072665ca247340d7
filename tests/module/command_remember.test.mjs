import assert from 'node:assert/strict';
import {
  chmodSync, existsSync, mkdirSync, mkdtempSync, readFileSync, readdirSync,
  rmSync, statSync, symlinkSync, writeFileSync,
} from 'node:fs';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';
import { probeFile, runCommand, startCommand } from '../support/command.mjs';
import { usePortal } from '../support/portal_session.mjs';
import { until } from '../support/until.mjs';

const session = usePortal();
const { withPortal } = session;

let folder;
before(async () => {
  // The hooks of a file begin together.
  await until(() => session.screen, 'the screen');
  folder = mkdtempSync(path.join(session.root, 'remember-'));
});
after(() => rmSync(folder, { recursive: true, force: true }));

let count = 0;
/** A state folder with nothing in it, and where choices are kept in it. */
function newState() {
  count += 1;
  const state = path.join(folder, `state-${count}`);
  return { state, kept: path.join(state, 'linux-capture', 'remembered') };
}

const file = () => {
  count += 1;
  return path.join(folder, `${count}.mkv`);
};

const recordAs = (name, state, ...args) => runCommand(
  ['record', file(), '--remember', name, '--duration', '1', ...args],
  { XDG_STATE_HOME: state });

const toldTo = (portal, what) =>
  new RegExp(`^call SelectSources .*'${what}': <([^>]*)>`, 'm')
    .exec(portal.output.text)?.[1];

const onlyFile = (kept) => {
  const files = readdirSync(kept);
  assert.equal(files.length, 1, files.join(' '));
  return path.join(kept, files[0]);
};

const tokenIn = (name) => JSON.parse(readFileSync(name, 'utf8')).restoreToken;
const modeOf = (name) => (statSync(name).mode & 0o777).toString(8);

describe('a choice of the dialog', () => {
  test('is taken again, each time with the newest token', async () => {
    const { state, kept } = newState();
    for (const [given, next] of [[undefined, 'one'], ["'one'", 'two'],
      ["'two'", 'three']]) {
      await withPortal({ token: next }, async (portal) => {
        const { status, stdout, stderr } = await recordAs('desk', state);
        assert.equal(stderr, '');
        assert.equal(status, 0);
        assert.equal(toldTo(portal, 'restore_token'), given);
        assert.equal(toldTo(portal, 'persist_mode'), 'uint32 2');
        assert.match(stdout, given === undefined ? /^Choose what to record/
          : /^Taking the choice "desk" again/);
      });
      const own = onlyFile(kept);
      assert.equal(tokenIn(own), next);
      assert.equal(modeOf(own), '600');
      assert.equal(modeOf(kept), '700');
    }
  });

  test('is listed by its name alone, and forgotten', async () => {
    const { state, kept } = newState();
    const environment = { XDG_STATE_HOME: state };
    await withPortal({ token: 'secret-1f4e' }, () => recordAs('my desk', state));
    const { stdout } = await runCommand(['sources'], environment);
    assert.match(stdout, /^Remembered choices.*\n {2}my desk {2}\d{4}-/m);
    const json = await runCommand(['sources', '--json'], environment);
    assert.deepEqual(JSON.parse(json.stdout).remembered.map(({ name }) => name),
      ['my desk']);
    assert.ok(!`${stdout}${json.stdout}`.includes('secret-1f4e'));
    // What a killed process had begun to write.
    writeFileSync(path.join(kept, 'my%20desk.json.0123.tmp'), 'secret');
    assert.deepEqual(await runCommand(['forget', 'my desk'], environment),
      { status: 0, signal: null, stdout: '', stderr: '' });
    assert.deepEqual(readdirSync(kept), []);
    const again = await runCommand(['forget', 'my desk'], environment);
    assert.equal(again.status, 1);
    assert.equal(again.stderr,
      'linux-capture: nothing is remembered as "my desk"\n');
  });

  test('keeps its token when the capture fails after the grant', async () => {
    const { state, kept } = newState();
    await withPortal({ token: 'used' }, () => recordAs('desk', state));
    await withPortal({ token: 'fresh', node: 4711 }, async () => {
      const { status } = await recordAs('desk', state);
      assert.equal(status, 1);
    });
    assert.equal(tokenIn(onlyFile(kept)), 'fresh');
  });

  test('is forgotten when the desktop gives nothing to restore it with',
    async () => {
      const { state, kept } = newState();
      await withPortal({ token: 'used' }, () => recordAs('desk', state));
      await withPortal({}, async () => {
        const { status, stderr } = await recordAs('desk', state);
        assert.equal(status, 0);
        assert.equal(stderr,
          'linux-capture: the desktop does not let "desk" be remembered\n');
      });
      assert.deepEqual(readdirSync(kept), []);
    });

  test('is seen in no arguments and no environment', async () => {
    const token = 'secret-77ab';
    const { state } = newState();
    await withPortal({ token }, () => recordAs('desk', state));
    await withPortal({ token: `${token}-new` }, async () => {
      const command = startCommand(['record', file(), '--remember', 'desk'],
        { XDG_STATE_HOME: state });
      try {
        await command.waitFor(/^Recording/m, 'the recording runs');
        // The portal's own program holds the session now.
        const inner = command.innerPid();
        const helpers = readFileSync(
          `/proc/${inner}/task/${inner}/children`, 'utf8').trim().split(' ');
        assert.ok(helpers.some((pid) => readFileSync(`/proc/${pid}/cmdline`,
          'utf8').includes('linux-capture-portal')));
        for (const pid of [command.child.pid, inner, ...helpers]) {
          for (const name of ['cmdline', 'environ']) {
            assert.ok(!readFileSync(`/proc/${pid}/${name}`, 'utf8')
              .includes('secret-'), `${name} of ${pid}`);
          }
        }
      } finally {
        command.child.kill('SIGINT');
        assert.equal((await command.end()).status, 0);
      }
    });
  });

  test('asks for pictures with or without the pointer', async () => {
    for (const [pointer, mode] of [['hidden', 1], ['embedded', 2]]) {
      await withPortal({ token: 'one' }, async (portal) => {
        const { status } =
          await recordAs('desk', newState().state, '--pointer', pointer);
        assert.equal(status, 0);
        assert.equal(toldTo(portal, 'cursor_mode'), `uint32 ${mode}`);
      });
    }
  });
});

describe('a remembered choice does no harm', () => {
  test('by its name', async () => {
    const { state, kept } = newState();
    const names = ['../../evil', '..', 'a\n\u202eb', '%2E'];
    await withPortal({ token: 'one' }, async () => {
      for (const name of names) {
        assert.equal((await recordAs(name, state)).status, 0, name);
      }
    });
    assert.deepEqual(readdirSync(state), ['linux-capture']);
    assert.deepEqual(readdirSync(path.dirname(kept)), ['remembered']);
    const { stdout } =
      await runCommand(['sources', '--json'], { XDG_STATE_HOME: state });
    assert.deepEqual(JSON.parse(stdout).remembered.map(({ name }) => name)
      .sort(), names.sort());
    assert.equal((await runCommand(['forget', ...names],
      { XDG_STATE_HOME: state })).status, 0);
    assert.deepEqual(readdirSync(kept), []);
  });

  const disturbed = [
    ['is damaged', (own) => writeFileSync(own, '{"restoreToken": "se')],
    ['has no token', (own) => writeFileSync(own, '{"restoreToken": 7}')],
    ['is a link elsewhere', (own) => {
      const target = path.join(folder, 'elsewhere');
      writeFileSync(target, '{"restoreToken": "foreign"}');
      rmSync(own);
      symlinkSync(target, own);
    }],
  ];
  for (const [what, disturb] of disturbed) {
    test(`where its file ${what}: the desktop asks, and it is kept anew`,
      async () => {
        const { state, kept } = newState();
        await withPortal({ token: 'one' }, () => recordAs('desk', state));
        disturb(onlyFile(kept));
        await withPortal({ token: 'two' }, async (portal) => {
          const { status, stderr } = await recordAs('desk', state);
          assert.equal(status, 0);
          assert.match(stderr,
            /^linux-capture: the choice "desk" cannot be read and is asked for again: .*\n$/);
          assert.doesNotMatch(stderr, /restoreToken|foreign|"se/);
          assert.equal(toldTo(portal, 'restore_token'), undefined);
        });
        assert.equal(tokenIn(onlyFile(kept)), 'two');
        if (existsSync(path.join(folder, 'elsewhere'))) {
          assert.equal(tokenIn(path.join(folder, 'elsewhere')), 'foreign');
        }
      });
  }

  test('where it cannot be kept: the recording is complete', async () => {
    const { state, kept } = newState();
    // Nobody, root included, can make a folder in a file.
    mkdirSync(path.dirname(kept), { recursive: true });
    writeFileSync(kept, '');
    const output = file();
    await withPortal({ token: 'one' }, async () => {
      const { status, stderr } = await runCommand(['record', output,
        '--remember', 'desk', '--duration', '1'], { XDG_STATE_HOME: state });
      assert.equal(status, 0);
      assert.match(stderr.trim().split('\n').at(-1),
        /^linux-capture: the choice "desk" cannot be remembered: /);
    });
    assert.equal((await probeFile(output)).complaints, '');
  });

  test('to a folder that others could read', async () => {
    const { state, kept } = newState();
    mkdirSync(kept, { recursive: true });
    chmodSync(kept, 0o755);
    await withPortal({ token: 'one' }, () => recordAs('desk', state));
    assert.equal(modeOf(onlyFile(kept)), '600');
  });
});
