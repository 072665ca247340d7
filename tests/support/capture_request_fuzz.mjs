// Sends arbitrary requests to the module. A program of its own, so that a
// crash is one more result its starter can see, and so that the stage lines of
// thousands of refused requests stay out of a test's output.
import { createRequire } from 'node:module';
import { createContext, runInContext } from 'node:vm';
import fc from 'fast-check';
import {
  completeRequest, knownMessages, layersRefusal, missing, sourceNames,
} from './capture_request_cases.mjs';

const addon = createRequire(import.meta.url)('../../index.js');

/** Thrown by getters and traps below; the module must let it through. */
class OwnError extends Error {}

const [, , runsText, secondsText, seedText] = process.argv;
const limits = {
  numRuns: Number(runsText),
  interruptAfterTimeLimit: Number(secondsText) * 1000,
  seed: Number(seedText),
};
const counts = { read: 0, refused: 0, own: 0 };

/** Whether a request ended in one of the ways that it may end in. */
function endsWell(request) {
  try {
    addon.captureSetup(request);
  } catch (error) {
    if (error instanceof OwnError) {
      counts.own += 1;
    } else if (!(error instanceof Error)) {
      throw new Error(`threw ${typeof error}`, { cause: error });
    } else if (error.message === layersRefusal) {
      counts.read += 1;
    } else if (knownMessages.has(error.message) ||
        error.message.startsWith('unsupported Linux audio mode: ') ||
        // What a revoked proxy throws at whoever touches it.
        error instanceof TypeError && /revoked/.test(error.message)) {
      counts.refused += 1;
    } else {
      throw new Error('unknown refusal', { cause: error });
    }
    if (addon.isCapturing()) throw new Error('a refused request captures');
    return;
  }
  throw new Error('an arbitrary request was not refused');
}

// Every arbitrary below gives a maker: fast-check looks into the values that
// it generates, which a revoked or throwing proxy does not survive, and a run
// that is repeated needs a fresh value.

const keyThatThrows = fc.string().map((key) => () =>
  Object.defineProperty({}, key, {
    get() { throw new OwnError(key); },
    enumerable: true,
  }));

const proxyThatThrows = fc.constantFrom(Object, Array, Function)
  .map((Target) => () =>
    new Proxy(new Target(), { get() { throw new OwnError('trap'); } }));

const revokedProxy = fc.constantFrom(Object, Array, Function)
  .map((Target) => () => {
    const { proxy, revoke } = Proxy.revocable(new Target(), {});
    revoke();
    return proxy;
  });

/** Answers every question with another value of the list. */
const fickleProxy = fc.array(fc.anything(), { minLength: 1 })
  .map((answers) => () => {
    let asked = 0;
    return new Proxy(() => {}, {
      get: () => answers[asked++ % answers.length],
    });
  });

const endlessArray = fc.record({
  length: fc.constantFrom(3, 2_000_000, 2 ** 31, 2 ** 32 - 1),
  head: fc.array(fc.anything(), { maxLength: 2 }),
}).map(({ length, head }) => () => {
  const array = [...head];
  array.length = length;
  return array;
});

/** An array that becomes shorter while it is read. */
const shrinkingArray = fc.array(fc.anything(), { minLength: 1, maxLength: 4 })
  .map((values) => () => {
    const array = [...values];
    Object.defineProperty(array, 0, {
      configurable: true,
      get() {
        array.length = 1;
        return 1;
      },
    });
    return array;
  });

/** Long lists are made once: it is the reading that is tried out. */
const longArrays = [
  Array(1_000_000).fill(1),
  Array.from({ length: 1_000_000 }, () => ({})),
  Object.assign(Array(1_000_000), { 0: 1, 999_999: 1 }),
];
const longArray = fc.nat(longArrays.length - 1)
  .map((index) => () => longArrays[index]);

/** Values of another realm, whose prototypes are none of this one. */
const realm = createContext({});
const foreign = fc.constantFrom('({})', '[]', '[1, 2]', '() => 1',
  'new Proxy({}, {})', 'new Proxy([], {})', 'Object("x11")', 'Object(1)',
  '(class { static mode = "process"; })', 'Symbol("foreign")', 'Promise',
  'new Map([["mode", "process"]])', 'Object.create(null)',
  '(() => { const { proxy, revoke } = Proxy.revocable({}, {});' +
    ' revoke(); return proxy; })()',
).map((source) => () => runInContext(source, realm));

/** Stands for a property that answers differently every time it is read. */
class ChangingAnswer {
  constructor(answers) {
    this.answers = answers;
  }

  defineOn(object, key) {
    let asked = 0;
    Object.defineProperty(object, key, {
      get: () => this.answers[asked++ % this.answers.length],
      configurable: true,
      enumerable: true,
    });
  }
}

const changingAnswer = fc.array(fc.oneof(fc.anything(),
  fc.constantFrom(1, 2, 'x11', 'window', 'process', {}, [], [1], true)),
{ minLength: 2, maxLength: 4 })
  .map((answers) => () => new ChangingAnswer(answers));

const plainValue = fc.oneof(
  fc.anything({
    withBigInt: true,
    withBoxedValues: true,
    withDate: true,
    withMap: true,
    withNullPrototype: true,
    withSet: true,
    withSparseArray: true,
    withTypedArray: true,
  }),
  fc.constantFrom(missing, Symbol('symbol'), Symbol.iterator, 0, -0, 1, 2, -1,
    NaN, Infinity, -Infinity, 2 ** 31, 2 ** 32, 2 ** 53, 1e308, '', 'x11',
    'portal', 'window', 'monitor', 'none', 'system', 'auto', 'process',
    'direct', 'topology', '\ud800', 'a\0b', null, undefined, true, false,
    10n ** 40n),
  fc.integer(), fc.double(), fc.bigInt(), fc.string({ unit: 'binary' }),
  fc.func(fc.anything()),
).map((value) => () => value);

const awkward = fc.oneof({ arbitrary: plainValue, weight: 20 },
  ...[keyThatThrows, proxyThatThrows, revokedProxy, fickleProxy, endlessArray,
    shrinkingArray, foreign, changingAnswer]
    .map((arbitrary) => ({ arbitrary, weight: 4 })),
  { arbitrary: longArray, weight: 1 });

/** The dotted paths of everything in a request that may be replaced. */
function pathsOf(value, path = []) {
  if (value === null || typeof value !== 'object') return [path];
  return [
    ...path.length > 0 ? [path] : [],
    ...Object.keys(value).flatMap((key) => pathsOf(value[key], [...path, key])),
  ];
}

const optionalPaths = [
  ['portal', 'label'], ['portal', 'streamId'], ['portal', 'mappingId'],
  ['portal', 'pipeWireSerial'], ['portal', 'restoreTokenUsed'],
  ['portal', 'restoreTokenUpdated'],
  ['linuxAudio', 'pipeWireAudioSources'],
  ['linuxAudio', 'pipeWireAudioSources', '0'],
  ['linuxAudio', 'pipeWireAudioSources', '0', 'processId'],
  ['linuxAudio', 'pipeWireAudioSources', '0', 'nodeName'],
];

function replace(request, path, value) {
  let object = request;
  for (const key of path.slice(0, -1)) {
    try {
      object = object[key];
    } catch {
      return;  // an earlier replacement does not want to be looked into
    }
    if (object === null || !['object', 'function'].includes(typeof object)) {
      return;
    }
  }
  try {
    if (value === missing) delete object[path.at(-1)];
    else if (value instanceof ChangingAnswer) value.defineOn(object, path.at(-1));
    else object[path.at(-1)] = value;
  } catch {
    // Frozen, read-only or revoked: the request stays as it is.
  }
}

/** What the request itself may be made of. */
const hulls = [
  (request) => request,
  (request) => Object.assign(() => {}, request),
  (request) => new Proxy(request, {}),
  (request) => Object.create(request),
  (request) => runInContext(`(${JSON.stringify(request)})`, realm),
];

/**
 * What to replace in a complete request, which reaches the later checks as
 * well. The two values that keep it from starting a capture stay.
 */
const replacements = fc.constantFrom(...sourceNames).chain((sourceName) => {
  const paths = [...pathsOf(completeRequest(sourceName)), ...optionalPaths]
    .filter((path) => !['capture', 'encoderRequirement', 'temporalLayerCount']
      .includes(path.at(-1)));
  return fc.tuple(fc.constant(sourceName), fc.constantFrom(...hulls),
    fc.array(fc.tuple(fc.constantFrom(...paths), awkward),
      { minLength: 1, maxLength: 4 }));
});

function almostComplete([sourceName, hull, changes]) {
  const request = hull(completeRequest(sourceName));
  request.linuxAudio.pipeWireAudioSources = [{}];
  for (const [path, make] of changes) replace(request, path, make());
  return request;
}

const allValues =
  fc.check(fc.property(awkward, (make) => endsWell(make())), limits);
const allRequests = fc.check(
  fc.property(replacements, (what) => endsWell(almostComplete(what))), limits);

function report(check) {
  return {
    failed: check.failed && check.counterexample !== null,
    runs: check.numRuns,
    seed: check.seed,
    path: check.counterexamplePath,
    error: check.errorInstance === null || check.errorInstance === undefined
      ? null
      : `${check.errorInstance.message}: ${check.errorInstance.cause?.stack}`,
  };
}

console.log(JSON.stringify({
  values: report(allValues),
  requests: report(allRequests),
  counts,
}));
