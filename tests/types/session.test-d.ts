import session = require('../../lib/session/index');

async function readEverything(): Promise<void> {
  const controller = new AbortController();
  const capture = await session.startCapture({
    source: { type: 'monitor', name: 'eDP-1' },
    video: { fps: 30, branches: [{ width: 640 }], layers: 3 },
    audio: { application: 'Firefox', follow: false },
    signal: controller.signal,
  });
  for await (const packet of capture.video({ branch: 1 })) {
    const data: Buffer = packet.data;
    const time: number = packet.timestampUs;
    void [data, time];
  }
  for await (const packet of capture.audio()) {
    const samples: Int16Array = packet.samples;
    void samples;
  }
  capture.events.on('error', (error) => {
    const code: session.CaptureErrorCode = error.code;
    void code;
  });
  capture.events.on('stopped', ({ reason }) => {
    const known: 'stop' | 'abort' | 'source-ended' | 'error' = reason;
    void known;
  });
  const token: string | null = capture.restoreToken;
  const dropped: number | undefined =
    capture.stats().video.branches[0]?.reader.dropped;
  void [token, dropped];
  await capture.setAudioTargets({ processId: 1 });
  await capture.stop();
  await capture[Symbol.asyncDispose]();
}

// Every kind of source is accepted.
void readEverything;
void session.startCapture({ source: { type: 'window', title: 'Terminal' } });
void session.startCapture({
  source: { type: 'portal', types: ['window'], persist: 'session',
    onRestoreToken: (token: string | null) => void token },
  audio: 'system',
});
void session.selectRegion()
  .then((geometry) => ({ type: 'monitor', geometry }) satisfies session.Source);
void session.takeScreenshot({ source: { type: 'monitor' }, pointer: 'hidden' })
  .then(({ data, width }) => data.length + width);
void session.startCapture({
  source: { type: 'monitor' },
  audio: { system: true, microphone: true },
});
void session.startCapture({
  source: { type: 'monitor' },
  audio: { microphone: 'Desk', follow: false },
});
// @ts-expect-error Nothing is chosen.
void session.startCapture({ source: { type: 'monitor' }, audio: {} });
void session.startCapture({
  source: { type: 'pipewire', fd: 3, nodeId: 7, width: 640, height: 360 },
});

// What the targets hold can be passed on.
async function chooseFirst(): Promise<void> {
  const { applications, inputs, monitors } = await session.listTargets();
  const names: string[] | undefined = inputs?.map(({ name }) => name);
  void names;
  const application = applications?.[0];
  if (application !== undefined) {
    await session.startCapture({
      source: { type: 'monitor', name: monitors?.[0]?.name },
      audio: { linuxAudio: application.linuxAudio },
    });
  }
}
void chooseFirst;

// @ts-expect-error A source is needed.
void session.startCapture({});
// @ts-expect-error A window is chosen by something.
void session.startCapture({ source: { type: 'window' } });
// @ts-expect-error No such cursor.
void session.startCapture({ source: { type: 'portal', cursor: 'big' } });
void session.startCapture({
  source: { type: 'monitor' },
  // @ts-expect-error No such sound.
  audio: 'microphone',
});
// @ts-expect-error No such code.
new session.CaptureError('ERR_OTHER', 'text');
