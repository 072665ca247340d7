import assert from 'node:assert/strict';
import { writeFileSync } from 'node:fs';
import path from 'node:path';
import { describe, test } from 'node:test';
import { takeScreenshot } from 'linux-capture-addon/session';
import { runCommand } from '../support/command.mjs';
import { patchColours } from '../support/picture.mjs';
import { coloursIn, readPng } from '../support/png.mjs';
import { usePortal } from '../support/portal_session.mjs';
import { useFolder } from '../support/temporary_folder.mjs';

const { withPortal } = usePortal({ width: 320, height: 160 });

const folder = useFolder();

async function assertPatches(file) {
  const picture = await readPng(file);
  assert.deepEqual([picture.width, picture.height], [320, 160]);
  patchColours.forEach((colour, patch) => {
    assert.deepEqual(coloursIn(picture, {
      x: patch % 4 * 80, y: 40 + Math.floor(patch / 4) * 40,
      width: 80, height: 40,
    }), { [colour.join()]: 80 * 40 });
  });
}

describe('a screenshot of a screen cast', () => {
  test('has each pixel as it is, and gives the session back', async () => {
    await withPortal({ token: 'next' }, async (portal) => {
      const { data, source, restoreToken } = await takeScreenshot(
        { source: { type: 'portal' }, pointer: 'hidden' });
      const file = path.join(folder, 'portal.png');
      writeFileSync(file, data);
      await assertPatches(file);
      assert.equal(source.type, 'portal');
      assert.equal(restoreToken, 'next');
      assert.match(portal.output.text, /'cursor_mode': <uint32 1>/);
      await portal.waitFor(/^closed .*session/m, 'the session is closed');
    });
  });

  test('is taken by the command, which remembers the choice', async () => {
    const file = path.join(folder, 'command.png');
    const state = { XDG_STATE_HOME: path.join(folder, 'state') };
    const shoot = (name) =>
      runCommand(['shot', name, '--remember', 'desk', '--overwrite'], state);
    await withPortal({ token: 'one' }, async () => {
      const { status, stdout, stderr } = await shoot(file);
      assert.equal(stderr, '');
      assert.equal(status, 0);
      assert.match(stdout,
        /^Choose what to capture in the dialog of the desktop\.\n\S+: 320x160, /);
    });
    await assertPatches(file);
    await withPortal({ token: 'two' }, async (portal) => {
      assert.equal((await shoot(file)).status, 0);
      assert.match(portal.output.text, /'restore_token': <'one'>/);
    });
  });

  test('says so when the stream has gone', async () => {
    await withPortal({ node: 4711 }, () => assert.rejects(
      takeScreenshot({ source: { type: 'portal' } }),
      { code: 'ERR_CAPTURE_SOURCE' }));
  });
});

test('the pointer of a granted stream is what it is', async () => {
  await assert.rejects(takeScreenshot({
    source: { type: 'pipewire', fd: 0, nodeId: 1, width: 1, height: 1 },
    pointer: 'hidden',
  }), { code: 'ERR_CAPTURE_ARGUMENT' });
});
