import assert from 'node:assert/strict';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';
import { checkBuild, checkHardware } from
  '../../lib/command/doctor_checks.mjs';
import { missingElements } from '../../lib/command/doctor_elements.mjs';
import { runCommand } from '../support/command.mjs';
import { useDisplay } from '../support/display.mjs';
import { desktopOf } from '../support/x_tools.mjs';

const context = useDisplay();
const nowhere = Object.freeze({
  XDG_RUNTIME_DIR: '/nowhere', DBUS_SESSION_BUS_ADDRESS: '',
});

const byId = ({ checks }) =>
  Object.fromEntries(checks.map((check) => [check.id, check]));

describe('doctor', () => {
  test('tries a display out', async () => {
    const { status, stdout, stderr } =
      await runCommand(['doctor', '--json'], nowhere);
    assert.equal(stderr, '');
    assert.equal(status, 0);
    const report = JSON.parse(stdout);
    assert.equal(report.canCapture, true);
    assert.deepEqual(report.usable,
      { x11: true, portal: false, sound: false, hardware: false });
    const checks = byId(report);
    assert.match(checks.x11.detail, /took a picture of :\d+ with openh264/);
    assert.match(checks.module.detail, /GStreamer \d+\.\d+\.\d+ and OpenH264/);
    for (const id of ['pipewire', 'portal', 'encoder-hardware']) {
      assert.equal(checks[id].isUsable, false, id);
      assert.ok(checks[id].remedy.length > 0, id);
    }
    assert.ok(checks.pipewire.packages.includes('wireplumber'));
  });

  test('fails where nothing can be captured', async () => {
    const { status, stdout } =
      await runCommand(['doctor'], { ...nowhere, DISPLAY: '' });
    assert.equal(status, 1);
    assert.match(stdout,
      /^no {2}Pictures of X11\n {6}DISPLAY is not set\.\n {6}Run it /m);
    assert.match(stdout, /^no {2}Screen casts .*\n {6}There is no session bus/m);
    // Every line is a title or belongs to one.
    const [, list] = stdout.split('\n\n');
    assert.ok(list.split('\n').every((line) => /^(ok |no | {5}) \S/.test(line)),
      list);
    assert.match(stdout, /\nNothing can be captured here\.\n$/);
  });

  test('survives a display that is not there', async () => {
    const { status, stdout } =
      await runCommand(['doctor'], { ...nowhere, DISPLAY: ':9999' });
    assert.equal(status, 1);
    assert.match(stdout, /^no {2}Pictures of X11\n {6}./m);
  });
});

describe('what is missing', () => {
  test('is told by plain names, and how to install all of it once',
    async () => {
      const { stdout } = await runCommand(['doctor'],
        { ...nowhere, GST_PLUGIN_SYSTEM_PATH: '/nowhere' });
      assert.match(stdout,
        /^no {2}Plugins for X11\n {6}GStreamer has no plugin ximagesrc\.\n/m);
      assert.doesNotMatch(stdout, /libgst\w+\.so/);
      const sentences = stdout.match(/^.*gstreamer1\.0-plugins-.*$/gm);
      assert.equal(sentences.length, 1);
      assert.match(sentences[0],
        /^Install.*plugins-base .*plugins-good .*gstreamer1\.0-pipewire/);
      assert.ok(stdout.trimEnd().endsWith(sentences[0]));
    });

  test('in a build is told with what brings it', () => {
    const part = (isThere) => ({
      modules: ['libpipewire-0.3'], isThere: () => isThere,
      able: 'hears', without: 'no ears',
    });
    assert.equal(checkBuild([part(true)]).detail,
      'nothing was left out: it hears');
    const { isUsable, detail, remedy, packages } = checkBuild([part(false)]);
    assert.equal(isUsable, false);
    assert.match(detail, /without the development files of \S+: no ears$/);
    assert.deepEqual(packages, ['libpipewire-0.3-dev']);
    assert.match(remedy, /libpipewire-0\.3-dev, then run "npm r/);
    // This one has everything.
    assert.equal(checkBuild().isUsable, true);
  });

  test('of hardware encoders is no list of all that there are', () => {
    const report = { available: false, selectableForSimulcastFps: false,
      rejectionReason: 'is not installed' };
    assert.equal(checkHardware([report, report]).detail, 'none is installed');
    assert.equal(checkHardware([report,
      { ...report, available: true, rejectionReason: 'it lacks x' }]).detail,
    'it lacks x');
    assert.equal(checkHardware([report,
      { encoder: 'nvh264enc', selectableForSimulcastFps: true }]).isUsable,
    true);
  });
});

describe('the elements', () => {
  let folder;
  before(() => {
    folder = mkdtempSync(path.join(tmpdir(), 'linux-capture-test-'));
  });
  after(() => rmSync(folder, { recursive: true }));

  test('are found on this machine', () => {
    for (const use of ['pictures', 'x11', 'pipewire', 'sound']) {
      assert.deepEqual(missingElements(use, process.env), []);
    }
  });

  test('are missed where they are not', () => {
    const [{ file, packages }] = missingElements('x11', {}, [folder]);
    assert.equal(file, 'libgstximagesrc.so');
    assert.ok(packages.includes('gstreamer1.0-plugins-good'));
    assert.equal(missingElements('sound', {}, [folder]).length, 3);
  });
});

describe('sources', () => {
  test('lists monitors and windows', async () => {
    const { status, stdout } = await runCommand(['sources'], nowhere);
    assert.equal(status, 0);
    assert.match(stdout, /^Monitors .*\n {2}\S+ +640x360\+0\+0/m);
    assert.match(stdout, new RegExp(`0x${context.scene.window.toString(16)}`));
  });

  test('writes out what cannot be seen in a title', async () => {
    const desktop = desktopOf(context.display);
    await desktop.rename(context.scene.window, 'a\x1b[2J\nb\u202ec\u009bd');
    const written = String.raw`a\u001b[2J\nb\u202ec\u009bd`;
    const { stdout } = await runCommand(['sources'], nowhere);
    assert.ok(stdout.includes(`  ${written}\n`), stdout);
    const json = (await runCommand(['sources', '--json'], nowhere)).stdout;
    assert.doesNotMatch(json, /[^\P{Cc}\n]|[\u202e]/u);
    assert.ok(JSON.parse(json).windows.some(({ title }) =>
      title === 'a\x1b[2J\nb\u202ec\u009bd'));
    const { stderr, status } =
      await runCommand(['record', '/nowhere.mp4', '--window', 'no\u202esuch']);
    assert.equal(status, 1);
    assert.ok(stderr.includes(
      String.raw`there is no window with title "no\u202esuch"`), stderr);
    assert.ok(stderr.includes(`"${written}" (0x`), stderr);
  });

  test('prints the same as JSON', async () => {
    const { stdout } = await runCommand(['sources', '--json'], nowhere);
    const { monitors, windows, applications, problems } = JSON.parse(stdout);
    assert.deepEqual(monitors[0].source.geometry,
      { x: 0, y: 0, width: 640, height: 360 });
    assert.ok(windows.some(({ source }) =>
      source.handle === context.scene.window));
    assert.equal(applications, null);
    assert.deepEqual(problems.map(({ part }) => part), ['pipewire']);
  });

  test('fails where there is nothing to list', async () => {
    const { status } =
      await runCommand(['sources'], { ...nowhere, DISPLAY: '' });
    assert.equal(status, 1);
  });
});
