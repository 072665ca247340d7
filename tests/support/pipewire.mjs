import { chown, mkdir, mkdtemp, rm, writeFile } from 'node:fs/promises';
import { connect } from 'node:net';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { readObjects, runTool, waitUntilNodeIsGone } from
  './pipewire_objects.mjs';
import { collectText, endHelper, hasEnded, startHelper } from
  './processes.mjs';
import { until } from './until.mjs';

/**
 * Hardware and desktop services have no place in a private session, and this
 * session manager ends itself when it cannot reach a session bus for them.
 */
const managerConfiguration = {
  'main.lua.d/51-private.lua': [
    'alsa_monitor.enabled = false',
    'v4l2_monitor.enabled = false',
    'libcamera_monitor.enabled = false',
    'default_access.properties["enable-flatpak-portal"] = false',
    '',
  ].join('\n'),
  'bluetooth.lua.d/51-private.lua': 'bluez_monitor.enabled = false\n',
};

/** Variables that would lead a program out of the private session. */
const outside = [
  'DBUS_SESSION_BUS_ADDRESS', 'DISPLAY', 'WAYLAND_DISPLAY', 'PIPEWIRE_REMOTE',
  'PIPEWIRE_CONFIG_DIR', 'PULSE_SERVER', 'PULSE_RUNTIME_PATH',
];

async function makeFolders(user) {
  const root = await mkdtemp(path.join(tmpdir(), 'linux-capture-pipewire-'));
  const folders = {
    XDG_RUNTIME_DIR: path.join(root, 'runtime'),
    XDG_STATE_HOME: path.join(root, 'state'),
    XDG_CONFIG_HOME: path.join(root, 'config'),
    XDG_DATA_HOME: path.join(root, 'data'),
    HOME: path.join(root, 'home'),
  };
  const made = [root];
  for (const folder of Object.values(folders)) {
    await mkdir(folder, { mode: 0o700 });
    made.push(folder);
  }
  for (const [name, text] of Object.entries(managerConfiguration)) {
    const file = path.join(folders.XDG_CONFIG_HOME, 'wireplumber', name);
    await mkdir(path.dirname(file), { recursive: true });
    await writeFile(file, text);
    made.push(path.dirname(path.dirname(file)), path.dirname(file), file);
  }
  if (user !== undefined) {
    for (const name of made) await chown(name, user.uid, user.gid);
  }
  return { root, folders };
}

function environmentOf(folders) {
  const environment = { ...process.env, ...folders };
  environment.PIPEWIRE_RUNTIME_DIR = folders.XDG_RUNTIME_DIR;
  // Nor may a library ask a bus of the machine for anything.
  environment.DBUS_SYSTEM_BUS_ADDRESS = 'disabled:';
  for (const name of outside) delete environment[name];
  return environment;
}

/** Whether a daemon listens there; the file of a killed one remains. */
function isListening(socket) {
  return new Promise((resolve) => {
    const connection = connect(socket);
    connection.once('connect', () => {
      connection.destroy();
      resolve(true);
    });
    connection.once('error', () => resolve(false));
  });
}

/**
 * Starts a PipeWire daemon and a session manager that know nothing of the
 * machine's own: their folders, their socket and their files are theirs alone.
 * `user`, for a test that runs as root, is the { uid, gid } they run as.
 */
export async function startPipeWire({ user } = {}) {
  const { root, folders } = await makeFolders(user);
  const environment = environmentOf(folders);
  const socket = path.join(folders.XDG_RUNTIME_DIR, 'pipewire-0');
  const options = { ...user, cwd: root, env: environment };
  const session = { environment, options, root, socket };

  const start = (command) => {
    // A test process that is killed or crashes cannot end its session; the
    // kernel can.
    const child = startHelper('setpriv', ['--pdeathsig', 'KILL', command], {
      ...options, stdio: ['ignore', 'ignore', 'pipe'],
    });
    return { child, errors: collectText(child.stderr) };
  };
  const isReady = (program, question, what) => until(async () => {
    if (hasEnded(program.child)) {
      throw new Error(`${what} ended early: ${program.errors.text}`);
    }
    return question();
  }, what, 20_000);

  session.startDaemon = async () => {
    session.daemon = start('pipewire');
    await isReady(session.daemon, () => isListening(socket), 'the daemon');
  };
  session.startManager = async () => {
    session.manager = start('wireplumber');
    await isReady(session.manager,
      // The daemon's socket is there a moment before it can be connected to.
      async () => /"default"/.test(
        await runTool(session, 'pw-cli', ['ls', 'Metadata'])
          .catch(() => '')),
      'the session manager');
  };
  session.killDaemon = () => endHelper(session.daemon.child, 'SIGKILL');
  session.killManager = () => endHelper(session.manager.child, 'SIGKILL');
  session.stop = async () => {
    if (session.manager) await endHelper(session.manager.child);
    if (session.daemon) await endHelper(session.daemon.child);
    await rm(root, { recursive: true, force: true, maxRetries: 5 });
  };

  try {
    await session.startDaemon();
    await session.startManager();
  } catch (error) {
    await session.stop();
    throw error;
  }
  return session;
}

async function addDevice(session, name, description, mediaClass) {
  await runTool(session, 'pw-cli', ['create-node', 'adapter',
    '{ factory.name=support.null-audio-sink ' +
    `node.name=${name} node.description="${description}" ` +
    `media.class=${mediaClass} audio.rate=48000 ` +
    'audio.channels=2 audio.position=[FL FR] object.linger=true }']);
  return until(async () => (await readObjects(session)).nodeNamed(name),
    `the device ${name}`);
}

/**
 * Adds an audio sink without hardware: without any sink there is nothing to
 * play to, and players end at once. Returns its node.
 */
export const addSink = (session, name = 'null1') =>
  addDevice(session, name, name, 'Audio/Sink');

/** Adds a microphone that others speak into. Returns its node. */
export const addInput = (session, name, description = name) =>
  addDevice(session, name, description, 'Audio/Source/Virtual');

/** Takes a sink or an input away again. */
export async function removeSink(session, sink) {
  await runTool(session, 'pw-cli', ['destroy', String(sink.id)]);
  await waitUntilNodeIsGone(session, sink.name);
}

/** Has a stream that plays speak into a microphone, both by their names. */
export async function feedInput(session, { player, input }) {
  for (const side of ['FL', 'FR']) {
    const ports = [`${player}:output_${side}`, `${input}:input_${side}`];
    // Its ports come a moment after the stream.
    await until(() => runTool(session, 'pw-link', ports)
      .then(() => true, () => false), `a link from ${ports.join(' to ')}`);
  }
}

/** Makes a sink or source the one that the user has chosen. */
export const setDefault = (session, kind, name) =>
  runTool(session, 'pw-metadata', ['0', `default.configured.audio.${kind}`,
    JSON.stringify({ name }), 'Spa:String:JSON']);
