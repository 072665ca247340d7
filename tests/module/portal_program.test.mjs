import assert from 'node:assert/strict';
import { closeSync, fstatSync, readFileSync } from 'node:fs';
import { after, before, describe, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { startNode } from '../support/child.mjs';
import { environmentWithBus, portalProgram, startFakePortal,
  startPortalProgram } from '../support/portal_program.mjs';
import { startSessionBus } from '../support/session_bus.mjs';

let bus;
before(async () => {
  bus = await startSessionBus();
});
after(() => bus?.stop());

const start = (args, address = bus.address, token = undefined) =>
  startPortalProgram(args, { env: environmentWithBus(address), token });

/** Runs `use` with the program against a portal that behaves as told. */
async function withPortal(behaviour, args, use, token = undefined) {
  const portal = await startFakePortal(bus.address, behaviour);
  const program = start(args, bus.address, token);
  try {
    return await use(program, portal);
  } finally {
    await program.stop();
    await portal.stop();
  }
}

/** The report of a stream that was granted. */
const granted = (behaviour, args, token = undefined) =>
  withPortal(behaviour, args, async (program, portal) => {
    const report = await program.report();
    program.close();
    assert.deepEqual(await program.end(), {
      status: 0, signal: null, stdout: program.output.text, stderr: '',
    });
    return { report, calls: portal.output.text };
  }, token);

/** The end of a program that gets no stream: one line and a status. */
async function failureOf(program, timeoutMs = undefined) {
  const { status, stdout, stderr } = await program.end(timeoutMs);
  assert.equal(stdout, '');
  const [, message] =
    stderr.match(/^linux-capture-portal: (.*)\n$/) ?? [null, stderr];
  return { status, message };
}

const failed = (behaviour, args) =>
  withPortal(behaviour, args, (program) => failureOf(program));

const settingsOf = (calls, method) =>
  calls.match(new RegExp(`^call ${method} (.*)$`, 'm'))[1];

describe('a granted stream', () => {
  test('is one line with the keys of a capture request', async () => {
    const { report } = await granted([
      '--streams', "[(uint32 77, {'size': <(1920, 1080)>, 'id': <'s\"1\\\\'>, " +
        "'mapping_id': <'m é'>, 'source_type': <uint32 2>, " +
        "'pipewire-serial': <uint64 4711>})]",
    ]);
    const { pid, pipeWireFd, ...rest } = report;
    assert.ok(pid > 0 && pipeWireFd > 2);
    assert.deepEqual(Object.keys(report).slice(0, 2), ['pid', 'pipeWireFd']);
    assert.deepEqual(Object.entries(rest), Object.entries({
      pipeWireNodeId: 77,
      pipeWireSerial: 4711,
      streamSize: { width: 1920, height: 1080 },
      sourceType: 2,
      kind: 'window',
      label: null,
      streamId: 's"1\\',
      mappingId: 'm é',
      restoreToken: null,
      restoreTokenUsed: false,
      restoreTokenUpdated: false,
    }));
  });

  test('has null for what the portal does not tell', async () => {
    const { report } = await granted([]);
    assert.deepEqual(
      [report.pipeWireSerial, report.streamId, report.mappingId],
      [null, null, null]);
    assert.deepEqual([report.sourceType, report.kind], [1, 'monitor']);
  });

  test('is the first one where a portal grants several', async () => {
    const { report } = await granted(['--streams',
      "[(uint32 5, {'size': <(10, 20)>}), (uint32 6, {'size': <(1, 2)>})]"]);
    assert.equal(report.pipeWireNodeId, 5);
  });

  test('keeps its connection open for the host to copy', () =>
    withPortal([], [], async (program) => {
      const { pid, pipeWireFd } = await program.report();
      assert.equal(pid, program.child.pid);
      const fd = addon.duplicateFdFromPid(pid, pipeWireFd);
      try {
        assert.ok(fstatSync(fd).isFIFO());
        assert.equal(readFileSync(fd, 'utf8'),
          'the connection of the fake portal');
      } finally {
        closeSync(fd);
      }
    }));

  test('is closed on the desktop when the input is closed', () =>
    withPortal([], [], async (program, portal) => {
      await program.report();
      program.child.stdin.write('this is not looked at\n');
      program.close();
      assert.equal((await program.end()).status, 0);
      await portal.waitFor(/^closed \/\S+\/session\/\S+$/m,
        'the session is closed');
    }));

  for (const signal of ['SIGTERM', 'SIGINT', 'SIGHUP']) {
    test(`is closed on ${signal} as well`, () =>
      withPortal([], [], async (program, portal) => {
        await program.report();
        program.child.kill(signal);
        assert.equal((await program.end()).status, 0);
        await portal.waitFor(/^closed \/\S+\/session\/\S+$/m,
          'the session is closed');
      }));
  }
});

describe('the handshake', () => {
  test('asks for one source of both kinds with the pointer', async () => {
    const { calls } = await granted([]);
    assert.match(settingsOf(calls, 'SelectSources'), /'types': <uint32 3>/);
    assert.match(settingsOf(calls, 'SelectSources'), /'multiple': <false>/);
    assert.match(settingsOf(calls, 'SelectSources'),
      /'cursor_mode': <uint32 2>/);
    assert.match(settingsOf(calls, 'SelectSources'),
      /'persist_mode': <uint32 0>/);
    const tokens = Array.from(
      calls.matchAll(/'handle_token': <'(\w+)'>/g), ([, token]) => token);
    assert.equal(new Set(tokens).size, 3, tokens.join(' '));
  });

  test('understands an answer that comes before its call returned',
    async () => {
      const { report } = await granted(['--early']);
      assert.equal(report.pipeWireNodeId, 42);
    });

  for (const early of [[], ['--early']]) {
    test(`understands paths of the portal's own ${early}`, async () => {
      const { report } = await granted(['--own-paths', ...early]);
      assert.equal(report.pipeWireNodeId, 42);
    });
  }

  test('asks only for kinds that the portal offers', async () => {
    const { calls } = await granted(['--types', '5']);
    assert.match(settingsOf(calls, 'SelectSources'), /'types': <uint32 1>/);
  });

  test('asks for the kinds that were named', async () => {
    const { calls, report } = await granted(
      ['--streams', "[(uint32 5, {'size': <(10, 20)>})]"],
      ['--types', 'window']);
    assert.match(settingsOf(calls, 'SelectSources'), /'types': <uint32 2>/);
    // The portal did not tell, but there was only one kind to choose from.
    assert.deepEqual([report.sourceType, report.kind], [2, 'window']);
  });

  test('does not believe that another kind was granted', async () => {
    const { report } = await granted(['--streams',
      "[(uint32 5, {'size': <(10, 20)>, 'source_type': <uint32 2>})]"],
    ['--types', 'monitor']);
    assert.deepEqual([report.sourceType, report.kind], [1, 'monitor']);
  });

  for (const [mode, bit] of [['hidden', 1], ['embedded', 2],
    ['metadata', 4]]) {
    test(`asks for the cursor mode ${mode}`, async () => {
      const { calls } = await granted(['--cursors', '7'], ['--cursor', mode]);
      assert.match(settingsOf(calls, 'SelectSources'),
        new RegExp(`'cursor_mode': <uint32 ${bit}>`));
    });
  }

  test('asks for no cursor mode where the usual one is missing', async () => {
    const { calls } = await granted(['--cursors', '1']);
    assert.doesNotMatch(settingsOf(calls, 'SelectSources'), /cursor_mode/);
  });

  test('leaves out what version 1 does not have', async () => {
    const { calls, report } = await granted(
      ['--version', '1', '--restore-token', 'unexpected'],
      ['--persist', 'permanent'], 'old');
    assert.doesNotMatch(settingsOf(calls, 'SelectSources'),
      /cursor_mode|persist_mode|restore_token/);
    assert.equal(report.restoreTokenUsed, false);
  });

  test('leaves out restoring before version 4', async () => {
    const { calls } = await granted(['--version', '3'],
      ['--persist', 'session'], 'old');
    assert.match(settingsOf(calls, 'SelectSources'), /cursor_mode/);
    assert.doesNotMatch(settingsOf(calls, 'SelectSources'),
      /persist_mode|restore_token/);
  });
});

describe('a restore token', () => {
  const cases = [
    { given: null, returned: null, used: false, updated: false },
    { given: null, returned: 'new', used: false, updated: true },
    { given: 'old', returned: null, used: true, updated: false },
    { given: 'old', returned: 'old', used: true, updated: false },
    { given: 'old', returned: 'new', used: true, updated: true },
  ];
  for (const { given, returned, used, updated } of cases) {
    test(`given ${given}, returned ${returned}`, async () => {
      const { calls, report } = await granted(
        returned === null ? [] : ['--restore-token', returned],
        ['--persist', 'permanent'], given ?? undefined);
      const settings = settingsOf(calls, 'SelectSources');
      assert.match(settings, /'persist_mode': <uint32 2>/);
      assert.equal(settings.match(/'restore_token': <'(\w+)'>/)?.[1] ?? null,
        given);
      assert.deepEqual([report.restoreToken, report.restoreTokenUsed,
        report.restoreTokenUpdated], [returned, used, updated]);
    });
  }

  const token = 'secret-1f4e';

  test('is seen neither among the arguments nor in the environment', () =>
    withPortal(['--mood', 'Start=wait'], [], async (program, portal) => {
      await portal.waitFor(/^call Start /m, 'the user is asked');
      assert.match(settingsOf(portal.output.text, 'SelectSources'),
        new RegExp(`'restore_token': <'${token}'>`));
      for (const file of ['cmdline', 'environ', 'comm', 'status']) {
        assert.ok(!readFileSync(`/proc/${program.child.pid}/${file}`, 'utf8')
          .includes(token), file);
      }
    }, token));

  test('is waited for', () =>
    withPortal([], ['--restore-token-stdin'], async (program, portal) => {
      program.child.stdin.write(token.slice(0, 4));
      program.child.stdin.write(`${token.slice(4)}\nnot looked at\n`);
      await program.report();
      assert.match(settingsOf(portal.output.text, 'SelectSources'),
        new RegExp(`'restore_token': <'${token}'>`));
    }));

  test('that does not come whole before the input is closed is no failure',
    () => withPortal([], ['--restore-token-stdin'], async (program, portal) => {
      program.child.stdin.end(token);
      assert.deepEqual(await program.end(),
        { status: 0, signal: null, stdout: '', stderr: '' });
      assert.doesNotMatch(portal.output.text, /^call/m);
    }));

  const unusable = [
    ['an empty line', '', 'the restore token is empty'],
    ['other bytes than UTF-8', Buffer.from([0x61, 0xff, 0x62]),
      'the restore token is not UTF-8'],
    ['a zero byte', Buffer.from([0x61, 0, 0x62]),
      'the restore token is not UTF-8'],
    ['no end', 'x'.repeat(100_000),
      'the first line of standard input is too long'],
  ];
  for (const [what, bytes, message] of unusable) {
    test(`may not be a line with ${what}`, async () => {
      const program = start(['--restore-token-stdin']);
      program.child.stdin.write(bytes);
      program.child.stdin.write('\n');
      assert.deepEqual(await failureOf(program), { status: 2, message });
    });
  }

  for (const args of [['--restore-token', token], [`--restore-token=${token}`],
    [`--restore-token-stdin=${token}`]]) {
    test(`is not taken from ${args[0].replace(token, 'TOKEN')}`, async () => {
      const { status, message } = await failureOf(start(args));
      assert.equal(status, 2);
      assert.match(message, /--restore-token-stdin/);
      assert.ok(!message.includes(token));
    });
  }
});

describe('a failure', () => {
  for (const method of ['CreateSession', 'SelectSources', 'Start']) {
    test(`${method}: the user cancels`, async () => {
      assert.deepEqual(await failed(['--code', `${method}=1`]),
        { status: 3, message: 'the user cancelled the screen cast' });
    });

    test(`${method}: the portal denies`, async () => {
      assert.deepEqual(await failed(['--code', `${method}=2`]), {
        status: 4,
        message: `the portal denied the screen cast (${method} answered 2)`,
      });
    });
  }

  for (const method of ['CreateSession', 'SelectSources', 'Start',
    'OpenPipeWireRemote']) {
    test(`${method}: the portal answers with an error`, async () => {
      assert.deepEqual(await failed(['--mood', `${method}=refuse`]), {
        status: 4,
        message: `the portal refused ${method}: ` +
          'the fake portal was told to refuse',
      });
    });
  }

  test('a stream of unknown size is refused', async () => {
    for (const properties of ["'id': <'x'>", "'size': <(0, 5)>",
      "'size': <(5, -1)>"]) {
      assert.deepEqual(
        await failed(['--streams', `[(uint32 5, {${properties}})]`]), {
          status: 4,
          message: 'the portal does not tell the size of the stream',
        });
    }
  });

  test('an empty list of streams is refused', async () => {
    assert.deepEqual(await failed(['--streams', '[]']),
      { status: 4, message: 'the portal granted no stream' });
  });

  test('a cursor mode that is not offered is named with those that are',
    async () => {
      assert.deepEqual(
        await failed(['--cursors', '3'], ['--cursor', 'metadata']), {
          status: 4,
          message: 'the portal has no cursor mode "metadata"; ' +
            'it offers: hidden, embedded',
        });
      assert.deepEqual(
        await failed(['--version', '1'], ['--cursor', 'hidden']), {
          status: 4,
          message: 'the portal has no cursor mode "hidden"; it offers: none',
        });
    });

  test('a kind of source that is not offered is named', async () => {
    assert.deepEqual(
      await failed(['--types', '1'], ['--types', 'monitor,window']), {
        status: 4,
        message: 'the portal cannot cast: window; it offers: monitor',
      });
    assert.deepEqual(await failed(['--types', '4']), {
      status: 4,
      message: 'the portal cannot cast: monitor, window; it offers: none',
    });
  });

  test('a session that a failure leaves behind is closed', () =>
    withPortal(['--code', 'Start=2'], [], async (program, portal) => {
      assert.equal((await program.end()).status, 4);
      await portal.waitFor(/^closed \/\S+\/session\/\S+$/m,
        'the session is closed');
    }));

  test('without a session bus says what is needed', async () => {
    const { status, message } =
      await failureOf(startPortalProgram([], { env: environmentWithBus() }));
    assert.equal(status, 5);
    assert.match(message, /^there is no session bus; .*xdg-desktop-portal/);
  });

  test('a bus that does not answer is no bus', async () => {
    const { status, message } =
      await failureOf(start([], 'unix:path=/nowhere/bus'));
    assert.equal(status, 5);
    assert.match(message, /^the session bus cannot be reached \(/);
  });

  test('without a portal says what to install', async () => {
    const { status, message } = await failureOf(start([]));
    assert.equal(status, 5);
    assert.match(message,
      /^no desktop portal .*install xdg-desktop-portal and the backend/);
  });

  test('a portal without screen casts lacks its backend', async () => {
    const { status, message } = await failed(['--no-screen-cast']);
    assert.equal(status, 5);
    assert.match(message, /^the desktop portal offers no screen cast; install/);
  });
});

describe('somebody who does not answer', { concurrency: true }, () => {
  /** Runs `use` with a bus, a portal on it, and a way to begin. */
  async function withOwnBus(behaviour, use) {
    const own = await startSessionBus();
    const portal = await startFakePortal(own.address, behaviour);
    const programs = [];
    const begin = (args = []) => {
      const program = start(args, own.address);
      programs.push(program);
      return program;
    };
    try {
      await use(own, portal, begin);
    } finally {
      own.resume();
      portal.resume();
      for (const program of programs) await program.stop();
      await portal.stop();
      await own.stop();
    }
  }

  test('is named: the session bus', () =>
    withOwnBus([], async (own, portal, begin) => {
      own.pause();
      assert.deepEqual(await failureOf(begin()), {
        status: 5, message: 'the session bus does not answer ' +
          '(waited 10 seconds)',
      });
    }));

  test('is named: the portal', () =>
    withOwnBus([], async (own, portal, begin) => {
      portal.pause();
      assert.deepEqual(await failureOf(begin(), 60_000), {
        status: 4, message: 'the desktop portal does not answer ' +
          '(waited 25 seconds)',
      });
    }));

  for (const method of ['CreateSession', 'SelectSources']) {
    test(`is named: the portal that lies about ${method}`, () =>
      withOwnBus(['--mood', `${method}=wait`], async (own, portal, begin) => {
        assert.deepEqual(await failureOf(begin()), {
          status: 4, message: `the portal did nothing about ${method} ` +
            '(waited 10 seconds)',
        });
      }));
  }

  test('does not keep a host waiting that has had enough', () =>
    withOwnBus([], async (own, portal, begin) => {
      own.pause();
      const program = begin();
      program.close();
      assert.deepEqual(await program.end(),
        { status: 0, signal: null, stdout: '', stderr: '' });
    }));
});

describe('while the user has not answered', () => {
  const undecided = ['--mood', 'Start=wait'];
  const untilAsked = (portal) =>
    portal.waitFor(/^call Start /m, 'the user is asked');

  test('closing the input takes the question back', () =>
    withPortal(undecided, [], async (program, portal) => {
      await untilAsked(portal);
      program.close();
      assert.deepEqual(await program.end(),
        { status: 0, signal: null, stdout: '', stderr: '' });
      await portal.waitFor(/^closed \/\S+\/request\/\S+_3$/m,
        'the request is closed');
      await portal.waitFor(/^closed \/\S+\/session\/\S+$/m,
        'the session is closed');
    }));

  test('a host that is killed takes the question back', async () => {
    const portal = await startFakePortal(bus.address, undecided);
    const host = startNode(`
      import { spawn } from 'node:child_process';
      spawn(${JSON.stringify(portalProgram)}, [],
        { stdio: ['pipe', 'pipe', 'inherit'] });
    `, { environment: environmentWithBus(bus.address) });
    try {
      await untilAsked(portal);
      host.child.kill('SIGKILL');
      await portal.waitFor(/^closed \/\S+\/session\/\S+$/m,
        'the session is closed');
    } finally {
      host.child.kill('SIGKILL');
      await portal.stop();
    }
  });

  test('a given time ends the wait', () =>
    withPortal(undecided, ['--timeout', '1'], async (program, portal) => {
      await untilAsked(portal);
      assert.deepEqual(await failureOf(program), {
        status: 4, message: 'the portal granted no stream in the time given',
      });
      await portal.waitFor(/^closed \/\S+\/request\/\S+_3$/m,
        'the request is closed');
    }));

  test('the portal may go away', () =>
    withPortal(undecided, [], async (program, portal) => {
      await untilAsked(portal);
      await portal.kill();
      assert.deepEqual(await failureOf(program),
        { status: 6, message: 'the desktop portal went away' });
    }));

  test('the desktop may close the session', () =>
    withPortal(undecided, [], async (program, portal) => {
      await untilAsked(portal);
      portal.closeSession();
      assert.deepEqual(await failureOf(program),
        { status: 6, message: 'the desktop closed the screen cast' });
    }));

  test('an input that is closed from the start ends at once', async () => {
    const portal = await startFakePortal(bus.address, undecided);
    try {
      const program = startPortalProgram([], {
        env: environmentWithBus(bus.address),
        stdio: ['ignore', 'pipe', 'pipe'],
      });
      assert.deepEqual(await program.end(),
        { status: 0, signal: null, stdout: '', stderr: '' });
    } finally {
      await portal.stop();
    }
  });
});

describe('while the stream is held', () => {
  const endOf = (program) => program.end().then(
    ({ status, stderr }) => ({ status, stderr }));

  test('a time for the grant does not end it', () =>
    withPortal([], ['--timeout', '1'], async (program) => {
      await program.report();
      const begin = performance.now();
      await assert.rejects(Promise.race([
        program.end(60_000).then(() => 'ended'),
        new Promise((_, reject) => {
          setTimeout(() => reject(new Error('still held')), 2_500);
        }),
      ]), { message: 'still held' });
      assert.ok(performance.now() - begin >= 2_000);
    }));

  test('the desktop may close it', () =>
    withPortal([], [], async (program, portal) => {
      await program.report();
      portal.closeSession();
      assert.deepEqual(await endOf(program), {
        status: 6,
        stderr: 'linux-capture-portal: the desktop closed the screen cast\n',
      });
    }));

  test('the portal may go away', () =>
    withPortal([], [], async (program, portal) => {
      await program.report();
      await portal.kill();
      assert.deepEqual(await endOf(program), {
        status: 6,
        stderr: 'linux-capture-portal: the desktop portal went away\n',
      });
    }));

  test('the session bus may go away', async () => {
    const own = await startSessionBus();
    const portal = await startFakePortal(own.address);
    const program = start([], own.address);
    try {
      await program.report();
      await own.kill();
      const { status, stderr } = await program.end();
      assert.equal(status, 6);
      assert.match(stderr,
        /^linux-capture-portal: the connection to the session bus was lost\n/);
    } finally {
      await program.stop();
      await portal.stop();
      await own.stop();
    }
  });
});

describe('the command line', () => {
  const refusals = [
    [['--type', 'monitor'], /^unknown option "--type"; is it --types\?$/],
    [['--times', 'monitor'], /^unknown option "--times"; is it --types\?$/],
    [['monitor'], /^unknown option "monitor"; --help lists all of them$/],
    [['--\u001b[2Jtypes\u202e'],
      /^unknown option "--\\u001b\[2Jtypes\\u202e"; --help lists/],
    [['--nothing\n'], /^unknown option "--nothing\\n"; --help lists/],
    [['--types=screen'],
      /^--types cannot be "screen"; it takes: monitor, window$/],
    [['--types'], /^--types needs a value$/],
    [['--types', 'screen'],
      /^--types cannot be "screen"; it takes: monitor, window$/],
    [['--types', 'monitor,'], /^--types cannot be ""/],
    [['--cursor', 'none'],
      /^--cursor cannot be "none"; it takes: hidden, embedded, metadata$/],
    [['--persist', 'ever'],
      /^--persist cannot be "ever"; it takes: none, session, permanent$/],
    [['--timeout', '0'], /^--timeout takes a number of seconds from 1 to /],
    [['--timeout', '5s'], /^--timeout takes a number .*, not "5s"$/],
  ];
  for (const [args, expected] of refusals) {
    test(`refuses ${args.join(' ')}`, async () => {
      const { status, message } = await failureOf(start(args));
      assert.equal(status, 2);
      assert.match(message, expected);
    });
  }

  test('tells its options and its version', async () => {
    const help = await start(['--help']).end();
    assert.equal(help.status, 0);
    for (const option of ['--types', '--cursor', '--persist',
      '--restore-token-stdin', '--timeout', '--help', '--version']) {
      assert.ok(help.stdout.includes(option), option);
    }
    // What it is used for, ready to be copied.
    assert.match(help.stdout, /^ {2}linux-capture-portal --types monitor$/m);
    const version = await start(['--version']).end();
    assert.deepEqual([version.status, version.stdout, version.stderr],
      [0, 'linux-capture-portal 0.1.0\n', '']);
  });
});
