/* global AudioContext, document, MediaStream, RTCPeerConnection -- what is
   evaluated runs in the page */

import { until } from './until.mjs';

const html = '<!DOCTYPE html><meta charset="utf-8"><title>receiver</title>' +
  '<div data-branch="0"><video muted autoplay playsinline></video>' +
  '<canvas></canvas></div>';

/** Makes a page that shows what is sent to it on a canvas, and hears it. */
export async function openReceiver(browser) {
  const page = await browser.open();
  await page.goto(`data:text/html,${encodeURIComponent(html)}`);
  await page.until('document.querySelector("video") !== null', 'the page');
  let seen = {};
  return {
    page,
    /** Takes an offer and gives the answer. */
    answer(offer) {
      seen = {};
      return page.evaluate(async (text) => {
        const video = document.querySelector('video');
        const canvas = document.querySelector('canvas');
        globalThis.peer?.close();
        const peer = new RTCPeerConnection();
        globalThis.peer = peer;
        const streams = new MediaStream();
        peer.ontrack = ({ track }) => {
          streams.addTrack(track);
          video.srcObject = streams;
          if (track.kind === 'audio') {
            const context = new AudioContext({ sampleRate: 48_000 });
            const analyser = context.createAnalyser();
            analyser.fftSize = 16_384;
            context.createMediaStreamSource(new MediaStream([track]))
              .connect(analyser);
            globalThis.analyser = analyser;
          }
        };
        const draw = () => {
          if (video.videoWidth > 0) {
            canvas.width = video.videoWidth;
            canvas.height = video.videoHeight;
            canvas.getContext('2d').drawImage(video, 0, 0);
          }
          video.requestVideoFrameCallback(draw);
        };
        video.requestVideoFrameCallback(draw);
        await peer.setRemoteDescription({ type: 'offer', sdp: text });
        await peer.setLocalDescription(await peer.createAnswer());
        while (peer.iceGatheringState !== 'complete') {
          await new Promise((resolve) => { setTimeout(resolve, 10); });
        }
        return peer.localDescription.sdp;
      }, offer);
    },
    /** The figures of what arrives, by kind of medium. */
    statistics: () => page.evaluate(async () => {
      const result = {};
      for (const entry of (await globalThis.peer.getStats()).values()) {
        if (entry.type === 'inbound-rtp') result[entry.kind] = entry;
      }
      return result;
    }),
    /** How smooth the pictures were since the last call, as text. */
    async tellFreezes() {
      const video = await until(async () => (await this.statistics()).video,
        'the first packets of pictures');
      const {
        freezeCount, totalFreezesDuration, framesDecoded, packetsLost,
        packetsReceived,
      } = video;
      const before = seen;
      seen = { freezeCount, totalFreezesDuration, framesDecoded, packetsLost,
        packetsReceived };
      const more = (key) => seen[key] - (before[key] ?? 0);
      return `${more('framesDecoded')} pictures shown, ${
        more('freezeCount')} freezes of ${
        more('totalFreezesDuration').toFixed(2)} s in all, ${
        more('packetsLost')} of ${
        more('packetsLost') + more('packetsReceived')} packets lost on their way`;
    },
    /** The loudest pitch that is heard, in hertz; 0 for silence. */
    pitch: () => page.evaluate(() => {
      const { analyser } = globalThis;
      if (analyser === undefined) return 0;
      const levels = new Float32Array(analyser.frequencyBinCount);
      analyser.getFloatFrequencyData(levels);
      const loudest = levels.indexOf(Math.max(...levels));
      return levels[loudest] < -60 ? 0
        : loudest * 48_000 / analyser.fftSize;
    }),
  };
}
