import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import process from 'node:process';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { checkCallbacks } from '../../scripts/check_callbacks.mjs';

const script = fileURLToPath(
  new URL('../../scripts/check_callbacks.mjs', import.meta.url));

test('every callback that the native code hands to a library is guarded', () => {
  execFileSync(process.execPath, [script]);
});

for (const [name, text] of Object.entries({
  'a signal': 'g_signal_connect(sink, "new-sample", G_CALLBACK(On), nullptr);',
  'a probe': 'gst_pad_add_probe(\n    pad, type, OnBuffer, data, nullptr);',
  'data with an end': 'g_object_set_data_full(object, key, data, Delete);',
  'a bus handler': 'gst_bus_set_sync_handler(bus, OnSync, nullptr, nullptr);',
  'a method': 'transformClass->fixate_caps = FixateCaps;',
  'an event': 'events.done = OnDone;',
  'an event of a class': 'events.done = &Listener::OnDone;',
  'a descriptor': 'g_unix_fd_add(fd, condition, OnInput, this);',
  'a call of D-Bus':
    'g_dbus_connection_call(bus, nullptr, -1, nullptr,\n  OnCallDone, &call);',
  'a trace': 'WelsTraceCallback callback = OnTrace;',
})) {
  test(`${name} without a guard is found`, () => {
    assert.equal(checkCallbacks('src/session/a.cc', text).length, 1);
  });
}

for (const [name, text] of Object.entries({
  'a guarded bus handler':
    'gst_bus_set_sync_handler(bus, NoThrow<&OnSync>, nullptr, nullptr);',
  'a guarded method': 'transformClass->fixate_caps = NoThrow<&FixateCaps>;',
  'a constant': 'stats.kind = kKind;',
  'a macro': 'events.version = PW_VERSION_CORE_EVENTS;',
  'a call': 'packet->enqueuedAtMs = WallClockMs();',
})) {
  test(`${name} is none`, () => {
    assert.deepEqual(checkCallbacks('src/session/a.cc', text), []);
  });
}
