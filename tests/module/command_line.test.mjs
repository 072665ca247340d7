import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import { bitsPerSecond, bytes, duration, size } from
  '../../lib/command/option_values.mjs';
import { scalingText } from '../../lib/command/notices.mjs';
import { parseRecord } from '../../lib/command/record_options.mjs';
import { clockText, sizeText } from '../../lib/command/figures.mjs';
import { shellWord } from '../../lib/command/report_text.mjs';
import { levelText, statusText } from '../../lib/command/status_line.mjs';
import { UsageError } from '../../lib/command/usage.mjs';
import { runCommand } from '../support/command.mjs';

const parse = (text, environment = { DISPLAY: ':0' }) =>
  parseRecord(text.split(' '), environment);

describe('values', () => {
  test('of a time', () => {
    const seconds = ['90', '1:30', '1:02:03', '1h2m3s', '2m', '0.5']
      .map((text) => duration('duration', text));
    assert.deepEqual(seconds, [90, 90, 3723, 3723, 120, 0.5]);
  });

  test('of a bitrate', () => {
    const bits = ['4M', '800k', '2.5M', '12345']
      .map((text) => bitsPerSecond('bitrate', text));
    assert.deepEqual(bits, [4_000_000, 800_000, 2_500_000, 12_345]);
  });

  test('of a size of a file', () => {
    assert.deepEqual(['700M', '3.9G', '100k', '4GB', '12345']
      .map((text) => bytes('max-size', text)),
    [700_000_000, 3_900_000_000, 100_000, 4_000_000_000, 12_345]);
    assert.throws(() => bytes('max-size', '4T'), UsageError);
  });

  test('of a size', () => {
    assert.deepEqual(size('size', '1280x720'), { width: 1280, height: 720 });
  });

  const wrong = [
    [duration, 'soon'], [duration, '0'], [duration, ''], [duration, '1:x'],
    [bitsPerSecond, '4G'], [bitsPerSecond, '-1'], [size, '1280'],
  ];
  for (const [read, text] of wrong) {
    test(`not ${JSON.stringify(text)} for ${read.name}`, () => {
      assert.throws(() => read('option', text), UsageError);
    });
  }
});

describe('record', () => {
  const sources = [
    ['--monitor out.mp4', { type: 'monitor' }],
    ['--monitor HDMI-1 out.mp4', { type: 'monitor', name: 'HDMI-1' }],
    ['out.mp4 --monitor', { type: 'monitor' }],
    ['--monitor --fps 10 out.mp4', { type: 'monitor' }],
    ['--monitor=DP-1 out.mkv', { type: 'monitor', name: 'DP-1' }],
    ['--window 0x1c00003 out.mp4', { type: 'window', id: 0x1c00003 }],
    ['--window Editor out.mp4', { type: 'window', title: 'Editor' }],
    ['--portal out.mp4', { type: 'portal' }],
    ['out.mp4', { type: 'monitor' }],
    ['--region 10,20,30x40 out.mp4', { type: 'monitor', isWholeScreen: true,
      region: { x: 10, y: 20, width: 30, height: 40 } }],
    ['--monitor DP-1 --region -1,0,3x4 out.mp4', { type: 'monitor',
      name: 'DP-1', isWholeScreen: false,
      region: { x: -1, y: 0, width: 3, height: 4 } }],
    ['--select out.mp4', { type: 'monitor', isDrawn: true }],
    ['--remember desk out.mp4', { type: 'portal', remember: 'desk' }],
    ['--portal --pointer hidden out.mp4', { type: 'portal', cursor: 'hidden' }],
    ['--pointer embedded out.mp4', { type: 'monitor' }],
  ];
  for (const [text, source] of sources) {
    test(`${text} means ${JSON.stringify(source)}`, () => {
      assert.deepEqual(parse(text).source, source);
    });
  }

  test('uses the portal where X11 does not show everything', () => {
    for (const environment of [{}, { DISPLAY: ':0', WAYLAND_DISPLAY: 'w' }]) {
      assert.deepEqual(parse('out.mp4', environment).source,
        { type: 'portal' });
    }
  });

  const unfit = [
    ['--region 0,0,0x10', '--region of 0x10 has nothing in it'],
    ['--portal --region 0,0,9x9',
      '--region is for a screen of X11: a screen cast is only taken whole'],
    ['--window x --region 0,0,9x9',
      '--region is for a screen of X11: a window is only taken whole'],
    ['--monitor --pointer hidden', '--pointer hidden is for the dialog of ' +
      'the desktop: a capture of X11 has the pointer in it'],
    ['--select --region 0,0,9x9', '--region and --select exclude each other'],
    ['--select --monitor', '--select and --monitor exclude each other'],
    ['--select --remember x',
      '--select is for a screen of X11: a screen cast is only taken whole'],
    ['--remember= --portal', 'a remembered choice needs a name'],
    [`--remember ${'x'.repeat(201)}`,
      'the name of the remembered choice is too long'],
    ['--remember desk --monitor', '--remember and --monitor exclude each other'],
    ['--pointer metadata', '--pointer takes embedded or hidden'],
  ];
  for (const [text, message] of unfit) {
    test(`refuses ${text}`, () => {
      assert.throws(() => parse(`out.mp4 ${text}`), { message });
    });
  }

  test('takes no part of a screen cast where that is all there is', () => {
    const wayland = { DISPLAY: ':0', WAYLAND_DISPLAY: 'w' };
    assert.throws(() => parse('--region 0,0,9x9 out.mp4', wayland), UsageError);
    assert.equal(parse('--monitor --region 0,0,9x9 out.mp4', wayland)
      .source.type, 'monitor');
  });

  test('takes sound and the way to encode', () => {
    assert.equal(parse('out.mp4').audio, false);
    assert.deepEqual(parse('--system-audio out.mp4').audio, { system: true });
    assert.deepEqual(parse('--app 77 out.mp4').audio, { processId: 77 });
    assert.deepEqual(parse('--app mpv out.mp4').audio, { application: 'mpv' });
    assert.deepEqual(parse('--microphone out.mp4').audio, { microphone: true });
    assert.deepEqual(parse('--microphone --system-audio out.mp4').audio,
      { system: true, microphone: true });
    assert.deepEqual(parse('out.mp4 --app mpv --microphone Desk').audio,
      { application: 'mpv', microphone: 'Desk' });
    assert.deepEqual(parse('--size 640x360 --fps 10 --bitrate 1M o.mp4').video,
      { width: 640, height: 360, fps: 10, bitrate: 1_000_000,
        layers: undefined, encoder: 'software' });
    assert.equal(parse('--layers 3 o.mp4').video.layers, 3);
    // A hardware encoder makes three branches, each slower and smaller.
    const { encoder, branches } = parse('--hardware o.mp4').video;
    assert.deepEqual({ encoder, count: branches.length },
      { encoder: 'hardware', count: 2 });
  });

  test('takes the way to encode sound', () => {
    assert.deepEqual(parse('out.mp4').audioFormat,
      { codec: 'aac', bitrate: 160_000 });
    assert.deepEqual(
      parse('--audio-codec opus --audio-bitrate 64k out.mkv').audioFormat,
      { codec: 'opus', bitrate: 64_000 });
  });

  const outputs = [
    ['out.mp4', 'file'], ['OUT.MKV', 'file'], ['-', 'pipe'],
    ['/dev/fd/63', 'pipe'], ['srt://127.0.0.1:9', 'stream'],
    ['rtmps://a/b/c', 'stream'],
  ];
  for (const [name, kind] of outputs) {
    test(`takes ${name} for a ${kind}`, () => {
      assert.deepEqual(parse(name).output, { kind, name });
      // What may be the name of a monitor is not.
      assert.deepEqual(parse(`--monitor ${name}`).output, { kind, name });
    });
  }

  test('takes limits of files, and a span to keep', () => {
    assert.equal(parse('out.mp4').limits, null);
    assert.deepEqual(parse('--max-time 10m out.mp4').limits,
      { seconds: 600, bytes: Infinity });
    assert.deepEqual(parse('--max-size 3.9G out.mp4').limits,
      { seconds: Infinity, bytes: 3_900_000_000 });
    assert.equal(parse('--replay 30 out.mp4').replay, 30);
  });

  test('shows a name as a shell takes it', () => {
    assert.deepEqual(['a.mp4', '-a.mp4', 'my film.mp4', 'it\'s.mkv',
      'a\nb.mkv'].map(shellWord),
    ['a.mp4', './-a.mp4', '\'my film.mp4\'', String.raw`'it'\''s.mkv'`, null]);
  });

  const refused = ['', 'out.avi', 'a.mp4 b.mp4', '--portal --monitor o.mp4',
    '--system-audio --app mpv o.mp4', '--fps x o.mp4', '--unknown o.mp4',
    'http://a/b.mp4', '--layers 4 o.mp4', '--audio-codec mp3 o.mkv',
    '--audio-codec opus o.mp4', '--audio-codec opus rtmp://a/b',
    '--audio-bitrate 9k o.mp4', '--max-size 1k o.mp4', '--max-time 0.1 o.mp4',
    '--max-time 9 -', '--replay 9 srt://a:1', '--replay 2h o.mp4',
    '--replay 9 --max-time 9 o.mp4', '--replay 9 --overwrite o.mp4'];
  for (const text of refused) {
    test(`refuses ${JSON.stringify(text)}`, () => {
      assert.throws(() => parse(text), UsageError);
    });
  }
});

describe('the status line', () => {
  test('shows time, rates, losses and level', () => {
    assert.equal(statusText({
      seconds: 75.9, fps: 29.97, bitsPerSecond: 2_345_678, bytes: 22_260_000,
      dropped: 3, peak: 0.1, isPaused: false,
    }), '01:15  30.0 fps  2.35 Mbit/s  22.3 MB  3 dropped  ' +
      'sound [#######---] -20 dB');
    assert.equal(statusText({
      seconds: 0, fps: 30, bitsPerSecond: 0, bytes: 0, dropped: 0, peak: null,
      isPaused: true,
    }), '00:00  paused  0.00 Mbit/s  0 kB  0 dropped');
  });

  test('counts in larger units where there are so many bytes', () => {
    assert.deepEqual([1, 999_000, 1_500_000, 4_200_000_000].map(sizeText),
      ['1 kB', '999 kB', '1.5 MB', '4.2 GB']);
  });

  test('counts hours only when there are some', () => {
    assert.deepEqual([59, 61, 3661].map(clockText),
      ['00:59', '01:01', '1:01:01']);
  });

  test('knows silence and full scale', () => {
    assert.equal(levelText(0), '[----------] silent');
    assert.equal(levelText(1), '[##########] 0 dB');
  });
});

describe('a picture that is not as large as its source', () => {
  const source = { width: 3840, height: 2160 };

  test('is told when nobody asked for it', () => {
    assert.equal(scalingText({ width: 1920, height: 1080 }, source, {}),
      'The picture of 3840x2160 is scaled down; --size 3840x2160 keeps all ' +
      'of it.');
    assert.equal(scalingText(source, source, {}), null);
    // The last column of an odd number is not worth a word.
    assert.equal(scalingText({ width: 400, height: 300 },
      { width: 401, height: 301 }, {}), null);
  });

  test('is told when it is not the one that was asked for', () => {
    assert.equal(scalingText({ width: 640, height: 360 }, source,
      { width: 640, height: 480 }),
    'A picture of 3840x2160 is 640x360 within 640x480.');
    assert.equal(scalingText({ width: 640, height: 360 }, source,
      { width: 640, height: 360 }), null);
  });
});

describe('the program', () => {
  test('explains itself', async () => {
    for (const args of [['--help'], ['-h'], ['help']]) {
      const { status, stdout } = await runCommand(args);
      assert.equal(status, 0);
      assert.match(stdout, /^usage: linux-capture COMMAND/);
    }
    assert.match((await runCommand(['--version'])).stdout,
      /^linux-capture \d+\.\d+\.\d+\n$/);
  });

  const sourceOptions = ['--portal', '--monitor', '--window', '--region',
    '--select', '--remember', '--pointer'];
  const optionsOf = {
    doctor: ['--json'],
    sources: ['--json'],
    forget: [],
    record: [...sourceOptions, '--system-audio', '--app', '--microphone',
      '--size', '--fps', '--bitrate', '--hardware', '--layers',
      '--audio-bitrate', '--audio-codec', '--duration', '--max-time',
      '--max-size', '--replay', '--overwrite', '--json'],
    shot: [...sourceOptions, '--overwrite'],
    preview: [...sourceOptions, '--system-audio', '--app', '--microphone',
      '--size', '--fps', '--bitrate', '--hardware', '--branch', '--layers',
      '--port', '--open'],
    publish: [...sourceOptions, '--system-audio', '--app', '--microphone',
      '--size', '--fps', '--bitrate', '--hardware', '--token-file',
      '--ask-token', '--branch', '--layers', '--audio-bitrate'],
  };
  for (const [name, options] of Object.entries(optionsOf)) {
    test(`explains ${name} with its options and examples`, async () => {
      const { status, stdout } = await runCommand([name, '--help']);
      assert.equal(status, 0);
      assert.equal((await runCommand(['help', name])).stdout, stdout);
      assert.ok(stdout.startsWith(`usage: linux-capture ${name}`), stdout);
      const listed =
        [...stdout.matchAll(/^ {2}(--[\w-]+)/gm)].map(([, option]) => option);
      assert.deepEqual(listed, [...options, '--verbose']);
      assert.match(stdout, /^examples:\n {2}linux-capture /m);
      assert.ok(stdout.split('\n').every((line) => line.length <= 80));
    });
  }

  const mistakes = [
    ['', 'a command is missing; there are doctor, sources, shot, record, ' +
      'preview, publish, forget'],
    ['frob', 'there is no command "frob"; there are doctor, sources, ' +
      'shot, record, preview, publish, forget'],
    ['record', 'the name of the file to write is missing', 'record '],
    ['record a.mp4 b.mp4', 'record writes one file, not 2: "a.mp4", "b.mp4"',
      'record '],
    ['record --frob a.mp4', 'there is no option --frob', 'record '],
    ['record a.mp4 --fps', '--fps needs a value', 'record '],
    ['record a.mp4 --fps --portal', '--fps needs a value', 'record '],
    ['record a.mp4 --fps 241', '--fps takes at most 240', 'record '],
    ['record a.mp4 --size big',
      '--size takes a size such as 1280x720, not "big"', 'record '],
    ['record a.mp4 --region 1,2',
      '--region takes a place and a size such as 100,50,1280x720, not "1,2"',
      'record '],
    ['doctor --json=yes', '--json takes no value', 'doctor '],
    ['sources all', '"all" is one word too many', 'sources '],
    ['preview --layers 4', '--layers takes at most 3', 'preview '],
  ];
  for (const [text, message, name = ''] of mistakes) {
    test(`answers "${text}" with a line and a hint`, async () => {
      const { status, stdout, stderr } =
        await runCommand(text.split(' ').filter(Boolean));
      assert.equal(status, 2);
      assert.equal(stdout, '');
      assert.equal(stderr, `linux-capture: ${message}\n` +
        `Try "linux-capture ${name}--help".\n`);
    });
  }

  test('asks for no choice where there is no dialog', async () => {
    for (const args of [['record', '/tmp/never.mp4', '--portal'],
      ['preview', '--portal']]) {
      const { status, stdout, stderr } = await runCommand(args, {
        XDG_RUNTIME_DIR: '/nowhere',
        DBUS_SESSION_BUS_ADDRESS: 'unix:path=/nowhere/bus',
      });
      assert.equal(status, 1);
      assert.equal(stdout, '');
      assert.match(stderr, /\(ERR_CAPTURE_PORTAL_MISSING\)\n$/);
    }
  });
});
