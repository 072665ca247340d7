import assert from 'node:assert/strict';
import {
  accessSync, mkdirSync, mkdtempSync, rmSync, symlinkSync,
} from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import v8 from 'node:v8';
import { pkgConfig } from '../../scripts/packages.mjs';
import { built } from './built.mjs';
import { runNode, stagesOf } from './child.mjs';
import { smallCapture } from './requests.mjs';

const standinFolder = built('standins');

// All that the hardware launch text uses besides the encoder and the source.
const realPlugins = ['coreelements', 'app', 'opengl', 'videorate'];

/**
 * Makes a plugin folder for one process: the real plugins of the launch text,
 * those stand-ins, and nothing else that the machine may have.
 */
function fillPluginFolder(folder, standins, morePlugins) {
  const plugins = path.join(folder, 'plugins');
  mkdirSync(plugins);
  const link = (from, name) => {
    const file = path.join(from, `libgst${name}.so`);
    accessSync(file);
    symlinkSync(file, path.join(plugins, path.basename(file)));
  };
  const systemFolder = pkgConfig('--variable=pluginsdir', 'gstreamer-1.0');
  for (const name of [...realPlugins, ...morePlugins]) {
    link(systemFolder, name);
  }
  for (const name of standins) link(standinFolder, name);
}

function environmentOf(folder, switches) {
  return {
    GST_REGISTRY: path.join(folder, 'registry.bin'),
    GST_PLUGIN_SYSTEM_PATH: path.join(folder, 'plugins'),
    GST_PLUGIN_SYSTEM_PATH_1_0: path.join(folder, 'plugins'),
    GST_PLUGIN_PATH: '',
    GST_PLUGIN_PATH_1_0: '',
    // Mesa's software GL, without a display server.
    GST_GL_WINDOW: 'egl-device',
    GST_GL_PLATFORM: 'egl',
    GST_GL_API: 'opengl3',
    LINUX_CAPTURE_STANDINS: switches,
  };
}

const imports = `
  import { runCapture } from ${JSON.stringify(
    new URL('capture.mjs', import.meta.url).href)};
  import { hardwareRequest, report, switchStandins } from ${JSON.stringify(
    import.meta.url)};
`;

/**
 * Runs a piece of module code in a process of its own whose GStreamer has the
 * stand-ins, and returns what that code reported; see `report`. `switches` are
 * the words that tests/support/standins/switches.h tells about.
 */
export async function runHardware(body, {
  switches = '', standins = ['nvcodec', 'pipewire'], morePlugins = [],
  timeoutMs = 60_000,
} = {}) {
  const folder = mkdtempSync(path.join(tmpdir(), 'linux-capture-test-'));
  try {
    fillPluginFolder(folder, standins, morePlugins);
    const child = await runNode(imports + body, {
      environment: environmentOf(folder, switches),
      timeoutMs,
    });
    assert.equal(child.isTimedOut, false, child.stderr);
    assert.equal(child.code, 0, child.stderr);
    return {
      ...v8.deserialize(Buffer.from(child.stdout, 'base64')),
      stages: stagesOf(child.stderr, child.pid),
      stderr: child.stderr,
    };
  } finally {
    rmSync(folder, { recursive: true });
  }
}

/** In the child: hands an object, less its methods, to runHardware's caller. */
export function report(value) {
  const data = Object.fromEntries(Object.entries(value)
    .filter(([, each]) => typeof each !== 'function'));
  process.stdout.write(v8.serialize(data).toString('base64'));
}

/** In the child: makes the stand-ins behave otherwise from now on. */
export function switchStandins(words) {
  process.env.LINUX_CAPTURE_STANDINS = words;
}

/** The three branches that `hardwareRequest` asks for. */
export const hardwareBranches = Object.freeze([
  Object.freeze({ branchIndex: 0, width: 640, height: 360, fps: 30 }),
  Object.freeze({ branchIndex: 1, width: 320, height: 180, fps: 15 }),
  Object.freeze({ branchIndex: 2, width: 160, height: 90, fps: 10 }),
]);

/** A request for three hardware branches of a portal's stream. */
export function hardwareRequest({
  sourceWidth = 640, sourceHeight = 360, branches, ...capture
} = {}) {
  const [primary, ...others] = hardwareBranches;
  return {
    source: { backend: 'portal', kind: 'monitor', handle: null },
    portal: {
      pipeWireFd: 17,
      pipeWireNodeId: 42,
      sourceType: 1,
      streamSize: { width: sourceWidth, height: sourceHeight },
    },
    capture: {
      ...smallCapture,
      width: primary.width,
      height: primary.height,
      fps: primary.fps,
      bitrate: 3_000_000,
      maxBitrate: 4_000_000,
      temporalLayerCount: 1,
      enableCABAC: true,
      encoderRequirement: 'hardware',
      ...capture,
      topology: {
        mode: 'topology',
        branches: branches ?? others.map(({ width, height, fps }) => (
          { width, height, fps, bitrate: 500_000 })),
      },
    },
    audio: { mode: 'none' },
  };
}

/** The keys of a hardware branch in the statistics report, in its order. */
export const hardwareBranchKeys = Object.freeze([
  'branchIndex', 'width', 'height', 'configuredFps', 'targetFps',
  'appliedBitrate', 'appliedMaxBitrate', 'observedFps', 'droppedFrames',
  'duplicateFrames', 'rawFrames', 'encodedFrames', 'keyframes', 'bytesEncoded',
  'bridgeQueuedPackets', 'bridgeDroppedPackets', 'bridgeSuppressedDeltaPackets',
  'bridgeKeyframeRecoveryRequests', 'hardwareKeyframeRequestsAccepted',
  'hardwareKeyframeRequestsFailed', 'lastHardwareKeyframeRequestAtMs',
  'lastHardwareKeyframeAtMs', 'maxHardwareKeyframeRecoveryLatencyMs',
  'byteRate', 'firstFrameAtMs', 'lastFrameAtMs', 'temporalFrameCounts',
  'temporalFrameDeltas', 'allTemporalLayersEncoded',
]);
