import assert from 'node:assert/strict';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { repositoryRoot } from '../support/addon.mjs';
import { built } from '../support/built.mjs';
import { spawnSync } from 'node:child_process';

test('a GStreamer that does not start is an error at load', () => {
  const { status, signal, stdout, stderr } = spawnSync(process.execPath, [
    '--eval', `
      try {
        require(${JSON.stringify(fileURLToPath(repositoryRoot))});
      } catch (error) {
        console.log(JSON.stringify([error.message, error.cause?.code]));
      }
    `,
  ], { env: { ...process.env, LD_PRELOAD: built('refused_gst_init.so') },
    encoding: 'utf8' });
  assert.equal(signal, null, stderr);
  assert.equal(status, 0, stderr);
  const [message, cause] = JSON.parse(stdout);
  assert.match(message,
    /GStreamer could not be initialized: the registry is broken/);
  assert.equal(cause, 'gstreamer-unavailable');
});
