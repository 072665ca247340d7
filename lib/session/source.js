'use strict';

const fs = require('node:fs');

const { quoted } = require('../visible_text.js');
const { argumentError, notFound } = require('./errors.js');
const { requireExactlyOne, requireInteger, requireObject, requireOneOf,
  requireText } = require('./options.js');
const { openPortal } = require('./portal.js');
const { listMonitors, listWindows } = require('./targets.js');

const nothing = () => {};

const quotedList = (list) =>
  list.filter((text) => text !== null).map(quoted);

function opened(request, size, description) {
  return {
    request, size, description, restoreToken: null, opened: nothing,
    reopen: null, closed: null, release: async () => {},
  };
}

function rectangle(geometry) {
  requireObject(geometry, 'source.geometry', ['x', 'y', 'width', 'height']);
  const { x = 0, y = 0, width, height } = geometry;
  requireInteger(x, 'source.geometry.x', -(2 ** 31));
  requireInteger(y, 'source.geometry.y', -(2 ** 31));
  requireInteger(width, 'source.geometry.width', 1);
  requireInteger(height, 'source.geometry.height', 1);
  return { x, y, width, height };
}

function openRectangle(geometry, name) {
  return opened(
    { source: { backend: 'x11', kind: 'monitor', handle: null, geometry } },
    { width: geometry.width, height: geometry.height },
    { type: 'monitor', name, geometry });
}

/** A monitor by its name, the primary one, or a rectangle of the screen. */
async function openMonitor(source, { signal }) {
  requireObject(source, 'source', ['type', 'name', 'geometry']);
  if (source.geometry !== undefined) {
    if (source.name !== undefined) {
      throw argumentError('source takes a name or a geometry, not both');
    }
    return openRectangle(rectangle(source.geometry), null);
  }
  if (source.name !== undefined) requireText(source.name, 'source.name');
  const monitors = await listMonitors(signal);
  const monitor = source.name === undefined
    ? monitors.find(({ isPrimary }) => isPrimary) ?? monitors[0]
    : monitors.find(({ name }) => name === source.name);
  if (monitor === undefined) {
    throw notFound(source.name === undefined ? 'monitor'
      : `monitor ${quoted(source.name)}`,
    quotedList(monitors.map(({ name }) => name)));
  }
  return openRectangle(monitor.source.geometry, monitor.name);
}

const describeWindow = ({ title, source }) =>
  `${quoted(title)} (0x${source.handle.toString(16)})`;

/** The window with exactly this title, else the only one that contains it. */
function findByTitle(windows, title) {
  const exact = windows.filter((window) => window.title === title);
  const found = exact.length > 0 ? exact
    : windows.filter((window) => window.title?.includes(title));
  if (found.length > 1) {
    throw argumentError(`${found.length} windows are called like ${
      quoted(title)}: ${found.map(describeWindow).join(', ')}; ` +
      'choose one by its id');
  }
  return found[0];
}

async function openWindow(source, { signal }) {
  requireObject(source, 'source', ['type', 'id', 'title', 'processId']);
  const key =
    requireExactlyOne(source, 'source', ['id', 'title', 'processId']);
  if (key === 'title') requireText(source.title, 'source.title');
  else requireInteger(source[key], `source.${key}`, 1);
  const windows = await listWindows(signal);
  const window = key === 'title' ? findByTitle(windows, source.title)
    : windows.find((entry) => (key === 'id'
      ? entry.source.handle : entry.processId) === source[key]);
  if (window === undefined) {
    const value = source[key];
    throw notFound(`window with ${key} ${
      key === 'title' ? quoted(value) : value}`,
    windows.filter(({ title }) => title !== null).map(describeWindow));
  }
  const { width, height } = window.geometry;
  return opened({ source: window.source }, { width, height }, {
    type: 'window',
    id: window.source.handle,
    title: window.title,
    processId: window.processId,
  });
}

/** A copy of a descriptor of this process, or null where there can be none. */
function copyDescriptor(fd, native) {
  try {
    return native.duplicateFdFromPid(process.pid, fd);
  } catch {
    return null;
  }
}

/** A stream that the host was granted by other means; its descriptor stays
 * the host's own, which may close it once the capture runs. */
async function openPipeWire(source, { native }) {
  requireObject(source, 'source',
    ['type', 'fd', 'nodeId', 'width', 'height', 'kind']);
  const { fd, nodeId, width, height, kind = 'monitor' } = source;
  requireInteger(fd, 'source.fd', 0);
  requireInteger(nodeId, 'source.nodeId', 1, 2 ** 32 - 1);
  requireInteger(width, 'source.width', 1);
  requireInteger(height, 'source.height', 1);
  requireOneOf(kind, 'source.kind', ['monitor', 'window']);
  const requestWith = (pipeWireFd) => ({
    source: { backend: 'portal', kind },
    portal: {
      pipeWireFd,
      pipeWireNodeId: nodeId,
      sourceType: kind === 'monitor' ? 1 : 2,
      streamSize: { width, height },
    },
  });
  const copy = copyDescriptor(fd, native);
  return {
    ...opened(requestWith(fd), { width, height },
      { type: 'pipewire', kind, nodeId }),
    reopen: copy === null ? null : () => requestWith(copy),
    release: async () => {
      if (copy !== null) fs.closeSync(copy);
    },
  };
}

const openers = {
  monitor: openMonitor,
  window: openWindow,
  portal: openPortal,
  pipewire: openPipeWire,
};

/** Finds and opens what `source` describes; `tools` is for the portal. */
function openSource(source, tools) {
  if (source === null || typeof source !== 'object') {
    throw argumentError('source must be an object');
  }
  requireOneOf(source.type, 'source.type', Object.keys(openers));
  return openers[source.type](source, tools);
}

module.exports = { openSource };
