import assert from 'node:assert/strict';
import { existsSync, readFileSync, readdirSync, statSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { describe, test } from 'node:test';

import {
  functionNames, moduleFiles, openh264Versions, packageName, prebuilt,
  replaceInBinary, root, runProgram, useInstalledPackage,
} from '../support/packed.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const require = createRequire(import.meta.url);
const context = useInstalledPackage();

describe('the packed file', () => {
  const has = (file) =>
    context.packed.files.some((entry) => entry.path === file);

  test('brings the module, the programs and what builds them', () => {
    for (const file of [...moduleFiles, `${prebuilt}/linux-capture-portal`,
      'CMakeLists.txt', 'CMakePresets.json', 'src/linux_capture_addon.cc',
      'src/exports.map', 'programs/CMakeLists.txt', 'scripts/install.mjs',
      'scripts/build.mjs', 'lib/system_packages.json', 'index.d.ts',
      'lib/session/index.d.ts', 'README.md', 'LICENSE']) {
      assert.ok(has(file), file);
    }
  });

  test('brings every program that is built', () => {
    const folder = path.join(root, 'programs');
    const programs = readdirSync(folder, { withFileTypes: true })
      .filter((entry) => entry.isDirectory() && entry.name !== 'common')
      .map((entry) => `${prebuilt}/linux-capture-${entry.name}`);
    assert.ok(programs.length > 0);
    for (const file of programs) assert.ok(has(file), file);
  });

  const documents = () => context.packed.files.map((entry) => entry.path)
    .filter((file) => file.endsWith('.md'));
  const textOf = (file) =>
    readFileSync(path.join(context.consumer.installed, file), 'utf8');

  test('brings whatever its documents link to, pictures too', () => {
    const pictures = new Set();
    for (const file of documents()) {
      for (const [, target] of textOf(file).matchAll(
        /(?:\]\(|^\[[^\]]+\]: |\b(?:src|href)=")(?!\w+:)([^)#\s"]+)/gm)) {
        const linked = path.posix.join(path.posix.dirname(file), target);
        assert.ok(has(linked) || context.packed.files.some((entry) =>
          entry.path.startsWith(`${linked.replace(/\/$/, '')}/`)),
        `${file}: ${target}`);
        if (/\.(png|svg|gif|jpe?g)$/.test(linked)) pictures.add(linked);
      }
    }
    assert.ok(pictures.size > 0);
    for (const picture of pictures) {
      const { stdout } = runProgram('ffprobe', ['-v', 'error', '-show_entries',
        'stream=width', '-of', 'csv=p=0',
        path.join(context.consumer.installed, picture)]);
      assert.ok(Number(stdout) >= 320, `${picture}: ${stdout}`);
    }
  });

  test('links to headings that are there', () => {
    const headingsOf = (file) => {
      const text = textOf(file).replace(/^```[\s\S]*?^```/gm, '');
      const plain = [...text.matchAll(/^#+ (.*)$/gm)].map(([, words]) =>
        words.replace(/\[([^\]]*)\]\([^)]*\)/g, '$1').toLowerCase()
          .replace(/[^\p{L}\p{N}\s_-]/gu, '').trim().replace(/\s/g, '-'));
      const named = [...text.matchAll(/\b(?:id|name)="([^"]+)"/g)];
      return new Set([...plain, ...named.map(([, name]) => name)]);
    };
    for (const file of documents()) {
      for (const [, target, heading] of textOf(file)
        .matchAll(/\]\((?!\w+:)([^)#\s]*)#([^)\s]+)\)/g)) {
        const linked = target === '' ? file
          : path.posix.join(path.posix.dirname(file), target);
        assert.ok(headingsOf(linked).has(heading),
          `${file}: ${target}#${heading}`);
      }
    }
  });

  test('brings of the scripts those that an installation runs', () => {
    assert.deepEqual(context.packed.files.map((entry) => entry.path)
      .filter((file) => file.startsWith('scripts/')).sort(),
    ['scripts/build.mjs', 'scripts/install.mjs', 'scripts/packages.mjs']);
  });

  test('brings no tests, no builds and nothing of this checkout', () => {
    for (const { path: file } of context.packed.files) {
      assert.doesNotMatch(file,
        /^(build|node_modules|\.|tests\/|package-lock)/);
    }
  });
});

describe('the prebuilt modules', () => {
  const installed = (file) => path.join(context.consumer.installed, file);
  const symbols = () => runProgram('nm',
    ['-D', '--undefined-only', ...moduleFiles.map(installed)]).stdout
    .match(/\bn(api|ode_api)_\w+/g);

  test('are one for each version of OpenH264', () => {
    for (const [index, version] of openh264Versions.entries()) {
      const { stdout } =
        runProgram('readelf', ['-d', installed(moduleFiles[index])]);
      assert.deepEqual(stdout.match(/libopenh264\.so\.\d+/g),
        [`libopenh264.so.${version}`]);
      assert.doesNotMatch(stdout, /R(UN)?PATH/);
    }
  });

  // Debian 12 has the oldest of the libraries that the documents promise.
  test('ask for nothing newer than the libraries of Debian 12 have', () => {
    const newest = { GLIBC: '2.36', GLIBCXX: '3.4.30', CXXABI: '1.3.13' };
    for (const file of [...moduleFiles, `${prebuilt}/linux-capture-portal`,
      `${prebuilt}/linux-capture-select`, `${prebuilt}/linux-capture-shot`,
      `${prebuilt}/linux-capture-targets`]) {
      const { stdout } = runProgram('objdump', ['-T', installed(file)]);
      const found =
        [...stdout.matchAll(/\b(GLIBC|GLIBCXX|CXXABI)_([\d.]+)/g)];
      assert.ok(found.length > 0, file);
      for (const [, library, version] of found) {
        assert.ok(version.localeCompare(newest[library], 'en',
          { numeric: true }) <= 0, `${file}: ${library} ${version}`);
      }
    }
  });

  test('ask for nothing beyond Node-API 8', () => {
    const { js_native_api_symbols: engine, node_api_symbols: host } =
      require('node-api-headers').symbols.v8;
    const known = new Set([...engine, ...host]);
    assert.ok(symbols().includes('napi_create_buffer_copy'));
    for (const name of symbols()) assert.ok(known.has(name), name);
  });

  // A host such as Electron refuses memory that V8 has not allocated.
  test('never hand foreign memory to JavaScript', () => {
    for (const name of symbols()) {
      assert.doesNotMatch(name, /^napi_create_external_/);
    }
  });

  test('are stripped', () => {
    for (const file of moduleFiles) {
      assert.match(runProgram('nm', [installed(file)]).output, /no symbols/);
    }
  });
});

describe('an installation without a compiler', () => {
  test('succeeds and builds nothing', () => {
    const { status, output } = context.installation;
    assert.equal(status, 0, output);
    assert.doesNotMatch(output, /build/i);
    const built = path.join(context.consumer.installed, 'build');
    assert.equal(existsSync(built), false);
  });

  test('leaves the programs executable', () => {
    const { mode } = statSync(
      path.join(context.consumer.installed, prebuilt, 'linux-capture-portal'));
    assert.equal(mode & 0o111, 0o111);
  });

  test('is required with all functions', () => {
    const { status, stdout, stderr } = context.consumer.evaluate(
      `console.log(JSON.stringify(Object.keys(require('${packageName}'))))`,
      'commonjs');
    assert.equal(status, 0, stderr);
    assert.deepEqual(JSON.parse(stdout), functionNames);
  });

  test('is imported with all functions by name', () => {
    const { status, stdout, stderr } = context.consumer.evaluate(
      `import { ${functionNames.join(', ')} } from '${packageName}';
      console.log([${functionNames.join(', ')}].map((it) => typeof it)
        .filter((type) => type === 'function').length);`);
    assert.equal(status, 0, stderr);
    assert.equal(stdout.trim(), String(functionNames.length));
  });

  test('gives the session to both kinds of modules', () => {
    const names = '{ CaptureError, listTargets, startCapture }';
    const use = 'console.log(typeof startCapture, typeof listTargets, ' +
      'new CaptureError(\'ERR_CAPTURE_STOPPED\', \'x\').code)';
    for (const [text, type] of [
      [`import ${names} from '${packageName}/session'; ${use}`, 'module'],
      [`const ${names} = require('${packageName}/session'); ${use}`,
        'commonjs'],
    ]) {
      const { stdout, stderr } = context.consumer.evaluate(text, type);
      assert.equal(stdout.trim(), 'function function ERR_CAPTURE_STOPPED',
        stderr);
    }
  });

  test('has a command that takes a picture of a display', async () => {
    const xvfb = await startXvfb();
    try {
      const { status, stdout, stderr } = context.consumer.run('npx',
        ['--no', 'linux-capture', 'doctor', '--json'],
        { DISPLAY: xvfb.display });
      assert.equal(status, 0, stderr);
      const report = JSON.parse(stdout.slice(stdout.indexOf('{')));
      assert.equal(report.usable.x11, true, stdout);
    } finally {
      await xvfb.stop();
    }
  });
});

// Each version of OpenH264 comes and goes with a release of the system.
test('the module whose OpenH264 is there is the one that is loaded', () => {
  const { installed, evaluate } = context.consumer;
  const loaded = (environment) => {
    const { stdout, stderr } = evaluate(
      `require('${packageName}'); console.log(
        Object.keys(require.cache).find((name) => name.endsWith('.node')))`,
      'commonjs', environment);
    return /openh264-\d+(?=\/)/.exec(stdout)?.[0] ?? stderr;
  };
  assert.equal(loaded(), 'openh264-7');
  // A machine that has the other one: its name is all that loading takes.
  replaceInBinary(path.join(installed, moduleFiles[0]),
    [['libopenh264.so.7', 'libopenh264.so.9']]);
  const library = path.join(root, 'build/openh264-8/third_party/openh264');
  assert.equal(loaded({ LD_LIBRARY_PATH: library }), 'openh264-8');
  assert.match(loaded(), /libopenh264\.so\.\d is missing/);
});
