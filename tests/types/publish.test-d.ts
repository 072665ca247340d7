import publishing = require('../../lib/publish/index');
import session = require('../../lib/session/index');

export async function show(capture: session.CaptureSession): Promise<void> {
  await using publication = await publishing.publish(capture, {
    url: new URL('https://example.org/whip'),
    token: 'secret',
    simulcast: true,
  });
  publication.events.on('state', ({ state, error }) => {
    const code: publishing.PublishErrorCode | undefined = error?.code;
    console.log(state, code);
  });
  const { leftOut, branches } = publication.stats();
  const layers: number | undefined = leftOut?.layersSent;
  console.log(layers, branches.map(({ rid }) => rid));
  const { reason } = await publication.ended;
  // @ts-expect-error -- there is no such reason
  if (reason === 'because') return;
}

// @ts-expect-error -- an address is needed
export const options: publishing.PublishOptions = { token: 'secret' };
