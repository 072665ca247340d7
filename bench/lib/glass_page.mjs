/* global document, OffscreenCanvas, RTCPeerConnection -- what is evaluated runs
   in the page */
// A page of Chromium that shows what is published to it, and tells when it
// showed which picture of the scene.
import process from 'node:process';

import { barcodeCells, readBarcode } from './barcode.mjs';

const html = '<!DOCTYPE html><video muted autoplay playsinline></video>';
const clockTries = 50;

const nowNs = () => Number(process.hrtime.bigint());

async function takeOffer(text, cells) {
  const video = document.querySelector('video');
  const peer = new RTCPeerConnection();
  globalThis.peer = peer;
  globalThis.shown = [];
  peer.ontrack = ({ track, streams: [stream] }) => {
    if (track.kind === 'video') video.srcObject = stream;
  };
  const small = new OffscreenCanvas(cells, 1)
    .getContext('2d', { willReadFrequently: true });
  small.imageSmoothingEnabled = false;
  const look = () => {
    const at = performance.now();
    video.requestVideoFrameCallback(look);
    const { videoWidth: width, videoHeight: height } = video;
    // The middle of the barcode, which is a fifteenth of the height.
    small.drawImage(video, 0, height / 60, width, height / 30, 0, 0, cells, 1);
    const { data } = small.getImageData(0, 0, cells, 1);
    globalThis.shown.push(
      [at, Array.from({ length: cells }, (_, cell) => data[cell * 4 + 1])]);
  };
  video.requestVideoFrameCallback(look);
  await peer.setRemoteDescription({ type: 'offer', sdp: text });
  await peer.setLocalDescription(await peer.createAnswer());
  while (peer.iceGatheringState !== 'complete') {
    await new Promise((resolve) => { setTimeout(resolve, 10); });
  }
  return peer.localDescription.sdp;
}

/** What to add to a time of the page, in nanoseconds of this process. */
async function clockOffsetNs(page) {
  let best = { trip: Infinity };
  for (let i = 0; i < clockTries; i += 1) {
    const before = nowNs();
    const there = await page.evaluate('performance.now()');
    const trip = nowNs() - before;
    if (trip < best.trip) best = { trip, offset: before + trip / 2 - there * 1e6 };
  }
  return best.offset;
}

export async function openGlass(browser) {
  const page = await browser.open();
  await page.goto(`data:text/html,${encodeURIComponent(html)}`);
  await page.until('document.querySelector("video") !== null', 'the page');
  return {
    answer: (offer) => page.evaluate(takeOffer, offer, barcodeCells),
    /** The pictures that were shown, as [{ number, ns }]. */
    async shown() {
      const offset = await clockOffsetNs(page);
      return (await page.evaluate('globalThis.shown'))
        .map(([ms, cells]) =>
          ({ number: readBarcode(cells), ns: ms * 1e6 + offset }))
        .filter(({ number }) => number !== null);
    },
  };
}
