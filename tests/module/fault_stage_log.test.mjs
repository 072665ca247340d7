import assert from 'node:assert/strict';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { useDisplay } from '../support/display.mjs';
import { checkCapture, withHost } from '../support/host.mjs';
import { monitorRequest } from '../support/requests.mjs';

const context = useDisplay({ width: 320, height: 180, scene: { fps: 30 } });
const request = monitorRequest({ sourceWidth: 320, sourceHeight: 180 });
const root = fileURLToPath(new URL('../..', import.meta.url));
const log = '/tmp/linux-capture-debug.log';

// Root needs no namespace of users for mounts of its own, and in a changed root
// folder there can be none.
const ownMounts = ['unshare', '--mount',
  ...process.getuid() === 0 ? [] : ['--map-root-user']];

/**
 * A host with a /tmp of its own, made by `script` before it starts. The X
 * server's socket is in the abstract namespace as well, so it is still found.
 */
const withOwnTmp = (script) => [...ownMounts, 'sh',
  '-c', [
    'set -e',
    // The module itself may lie below /tmp.
    `mount --bind '${root}' /mnt`,
    'mount -t tmpfs tmpfs /tmp',
    `mkdir -p '${root}'`,
    `mount --bind /mnt '${root}'`,
    script,
    'exec "$@"',
  ].join('\n'), 'sh'];

async function captureWith(script, check = () => {}) {
  await withHost({ display: context.display, prefix: withOwnTmp(script) },
    async (host) => {
      await checkCapture(host, request);
      await check(await host.call(async (_tools, name) => {
        const { lstatSync, readFileSync } = await import('node:fs');
        const status = lstatSync(name, { throwIfNoEntry: false });
        return {
          isFile: status?.isFile() ?? false,
          mode: status?.mode & 0o7777,
          text: status?.isFile() ? readFileSync(name, 'utf8') : '',
        };
      }, log), host);
      await checkCapture(host, request);
      // The lines reach standard error whatever becomes of the file.
      assert.ok(host.stages().includes('captureSetup:ready-emitted'));
    });
}

test('a new stage log is its owner\'s alone', async () => {
  await captureWith('umask 0', ({ isFile, mode, text }) => {
    assert.equal(isFile, true);
    assert.equal(mode, 0o600);
    assert.match(text, /stage=captureSetup:ready-emitted\n/);
  });
});

for (const [what, script] of [
  ['a folder', `mkdir ${log}`],
  ['a FIFO that nobody reads', `mkfifo ${log}`],
  ['a device', `touch ${log}; mount --bind /dev/null ${log}`],
  ['on a full disk', `mount -o remount,size=4096 /tmp; touch ${log}; ` +
    'yes >/tmp/fill 2>/dev/null || true'],
  ['on a read-only disk', 'mount -o remount,ro /tmp'],
]) {
  test(`a stage log that is ${what} does not matter`, async () => {
    await captureWith(script);
  });
}

test('a planted link is not followed', async () => {
  await captureWith(
    `echo kept >/tmp/target; ln -s /tmp/target ${log}`,
    async (_file, host) => {
      assert.equal(await host.call(async () =>
        (await import('node:fs')).readFileSync('/tmp/target', 'utf8')),
      'kept\n');
    });
});

test('a planted second name of a file is not written to', async () => {
  await captureWith(`echo kept >/tmp/target; ln /tmp/target ${log}`,
    ({ text }) => assert.equal(text, 'kept\n'));
});

test('a file that may not be written is left alone', async () => {
  await captureWith(`echo kept >${log}; chown 1:1 ${log} || chmod 0400 ${log}`,
    ({ text }) => {
      // Root may write what is only read-only to others, and its own lines
      // then follow; another user's file is never touched.
      assert.ok(text.startsWith('kept\n'));
    });
});
