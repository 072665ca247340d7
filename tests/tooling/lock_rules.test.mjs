import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('../..', import.meta.url));

const includes = execFileSync('pkg-config',
  ['--cflags-only-I', 'gstreamer-1.0', 'openh264'], { encoding: 'utf8' })
  .trim().split(/\s+/).map((flag) => flag.replace(/^-I/, '-isystem'));

/** What Clang says of the code with the flags of the preset "debug". */
function complaintsAbout(code) {
  const { status, stderr } = spawnSync('clang++', [
    '-std=c++20', '-fsyntax-only', '-Werror', '-Wthread-safety',
    '-Wthread-safety-beta', '-I', 'src',
    '-isystem', 'node_modules/node-api-headers/include', ...includes,
    '-x', 'c++', '-',
  ], {
    cwd: root,
    encoding: 'utf8',
    input: `#include "delivery/callback_queue.h"
#include "state/audio_source_stats.h"
#include "state/capture_state.h"
#include "state/counters.h"
#include "state/openh264_encoders.h"
namespace linux_capture {
${code}
}  // namespace linux_capture
`,
  });
  return { status, text: stderr };
}

const accepted = (code) => {
  const { status, text } = complaintsAbout(code);
  assert.equal(status, 0, text);
};
const refused = (code, complaint) => {
  const { status, text } = complaintsAbout(code);
  assert.notEqual(status, 0, `${code} was accepted`);
  assert.match(text, complaint);
};

for (const [mutex, use] of [
  ['g_mutex', 'int Use() { return g_activeVideoConfig->fps; }'],
  ['g_mutex', 'bool Use() { return *g_videoPipeline != nullptr; }'],
  ['g_mutex', 'auto Use() { return g_openH264Branches->size(); }'],
  ['g_mutex', 'void Use() { g_lastGstBusError->clear(); }'],
  ['g_controlMutex', 'void Use() { g_busThread->join(); }'],
  ['g_capsMutex', 'void Use() { g_lastVideoCaps->clear(); }'],
  ['g_audioSourceStatsMutex', 'void Use() { g_audioSourceStats->clear(); }'],
  ['g_hardwareStatsMutex', 'void Use() { g_hardwareBranchStats->clear(); }'],
  ['g_hardwareStatsMutex', 'auto* Use() { return FindHardwareBranchStats(0); }'],
]) {
  test(`${use} needs ${mutex}`, () => {
    refused(use, new RegExp(`requires holding mutex '${mutex}'`));
    accepted(use.replace('{', `{ const MutexLock lock(${mutex});`));
  });
}

test('the record of an encoder needs its own mutex', () => {
  const use = 'return record.stats.keyframes;';
  refused(`auto Use(OpenH264BranchEncoder& record) { ${use} }`,
    /requires holding mutex 'record\.mutex'/);
  refused(`auto Use(OpenH264BranchEncoder& record, Mutex& other) {
    const MutexLock lock(other); ${use} }`,
  /requires holding mutex 'record\.mutex'/);
  accepted(`auto Use(OpenH264BranchEncoder& record) {
    const MutexLock lock(record.mutex); ${use} }`);
});

test('a mutex is not taken twice', () => {
  refused(`void Use() {
    const MutexLock one(g_mutex); const MutexLock two(g_mutex); }`,
  /acquiring mutex 'g_mutex' that is already held/);
});

const inOrder = (...mutexes) => `void Use() {
  ${mutexes.map((mutex, i) => `const MutexLock lock${i}(${mutex});`).join(' ')}
}`;
for (const [outer, inner] of [
  ['g_controlMutex', 'g_mutex'],
  ['g_mutex', 'g_capsMutex'],
  ['g_mutex', 'g_audioSourceStatsMutex'],
  ['g_mutex', 'g_hardwareStatsMutex'],
]) {
  test(`${outer} is taken before ${inner}`, () => {
    accepted(inOrder(outer, inner));
    refused(inOrder(inner, outer),
      new RegExp(`mutex '${outer}' must be acquired before '${inner}'`));
  });
}

test('no mutex is one that the compiler cannot check', () => {
  const { stdout } = spawnSync('grep', ['-rnE', 'std::(mutex|lock_guard|' +
    'unique_lock|scoped_lock|shared_mutex)\\b', 'src'],
  { cwd: root, encoding: 'utf8' });
  assert.deepEqual(stdout.split('\n').filter((line) =>
    line !== '' && !line.startsWith('src/base/mutex.h:')), []);
});
