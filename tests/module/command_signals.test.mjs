import assert from 'node:assert/strict';
import { existsSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import { probeFile, startCommand } from '../support/command.mjs';
import { useDisplay } from '../support/display.mjs';
import { hasEnded } from '../support/processes.mjs';
import { useFolder } from '../support/temporary_folder.mjs';
import { until } from '../support/until.mjs';
import { startXvfb } from '../support/xvfb.mjs';

useDisplay();

const folder = useFolder();

const record = (name) => {
  const file = path.join(folder, name);
  return {
    file,
    command: startCommand(
      ['record', file, '--monitor', '--size', '320x180', '--overwrite']),
  };
};

/** As somebody does who has waited long enough. */
async function insist({ child }) {
  child.kill('SIGINT');
  await until(async () => {
    await sleep(400);
    return hasEnded(child) || !child.kill('SIGINT');
  }, 'the command to end');
}

describe('a second Ctrl-C', () => {
  test('ends a recording that does not end itself', async () => {
    const { command } = record('stuck.mp4');
    await command.waitForProgress();
    process.kill(command.innerPid(), 'SIGSTOP');
    await insist(command);
    const { status, stderr } = await command.end();
    assert.deepEqual({ status, stderr }, { status: 130, stderr: '' });
    const { complaints } = await probeFile(path.join(folder, 'stuck.mp4'));
    assert.equal(complaints, '');
  });

  test('of the same instant is the first once more', async () => {
    const { command, file } = record('twice.mp4');
    await command.waitForProgress();
    command.child.kill('SIGINT');
    command.child.kill('SIGTERM');
    const { status, stderr } = await command.end();
    assert.deepEqual({ status, stderr }, { status: 0, stderr: '' });
    const { complaints, seconds } = await probeFile(file);
    assert.equal(complaints, '');
    assert.ok(seconds > 4, `${seconds} s`);
  });
});

describe('where the X server stands still', () => {
  let xvfb;
  before(async () => {
    xvfb = await startXvfb();
    xvfb.pause();
  });
  after(async () => {
    xvfb?.resume();
    await xvfb?.stop();
  });

  test('one Ctrl-C ends a list', async () => {
    const command = startCommand(['sources'], { DISPLAY: xvfb.display });
    await until(() => command.innerPid() > 0, 'the second process');
    command.child.kill('SIGINT');
    const { status, stderr } = await command.end();
    assert.deepEqual({ status, stderr }, { status: 130, stderr: '' });
  });

  test('a list ends with its command', async () => {
    const command = startCommand(['sources'], { DISPLAY: xvfb.display });
    await until(() => command.innerPid() > 0, 'the second process');
    // The second process has the output too, so this waits for both.
    command.child.kill('SIGKILL');
    assert.equal((await command.end()).signal, 'SIGKILL');
  });

  for (const wasThere of [false, true]) {
    const what = wasThere ? 'keeps the file that it would replace'
      : 'leaves no empty file behind';
    test(`a recording that was ended before it began ${what}`, async () => {
      const file = path.join(folder, `early-${wasThere}.mp4`);
      if (wasThere) writeFileSync(file, 'precious');
      const command = startCommand(
        ['record', file, '--monitor', '--overwrite'],
        { DISPLAY: xvfb.display });
      await until(() => existsSync(file) && command.innerPid() > 0,
        'the file to be taken');
      await insist(command);
      const { status, stderr } = await command.end();
      assert.deepEqual({ status, stderr }, { status: 130, stderr: '' });
      assert.equal(existsSync(file), wasThere);
    });
  }
});
