import { after, before } from 'node:test';
import { addon } from './addon.mjs';
import { startScene } from './scene.mjs';
import { startXvfb } from './xvfb.mjs';

/**
 * Gives the calling test file an X server of its own with a scene on it. The
 * capture reads DISPLAY when it starts, so it is set for this process too.
 * The fields of the returned object are filled before the first test runs.
 */
export function useDisplay({ width = 640, height = 360, scene = {} } = {}) {
  const context = {};
  before(async () => {
    context.xvfb = await startXvfb({ width, height });
    context.display = context.xvfb.display;
    process.env.DISPLAY = context.display;
    context.scene = await startScene({
      width, height, display: context.display, ...scene,
    });
  });
  after(async () => {
    addon.stopCapture();
    await context.scene?.stop();
    await context.xvfb?.stop();
  });
  return context;
}
