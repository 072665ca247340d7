'use strict';

const { packetizeAccessUnit } = require('./access_units.js');
const { LayerFilter } = require('./layer_filter.js');
const { Pacer } = require('./pacer.js');
const { RateControl } = require('./rate_control.js');
const { goodbye, senderReport, sourceDescription } =
  require('./rtcp_reports.js');
const { readReports } = require('./rtcp_feedback.js');
const { ReceptionReports } = require('./reception_reports.js');
const { RtpStream } = require('./rtp_stream.js');
const offer = require('./sdp_offer.js');

// With every header and a tunnel it stays below what networks carry.
const longestPayload = 1_100;
const reportEveryMs = 1_000;
// What would leave later than that comes too late to be shown.
const longestWaitForAgainMs = 200;
// The pacer is well ahead of the media, and never slower than this.
const pacingFactor = 2.5;
const slowestPacing = 10e6;

const pacingOf = (bitsPerSecond) =>
  Math.max(slowestPacing, bitsPerSecond * pacingFactor);

/** The header extensions that tell a stream, where the answer kept them. */
function identification(kept, midValue, rid) {
  return (isRepair) => [
    [offer.mid, midValue],
    [isRepair ? offer.repairedStreamId : offer.streamId, rid],
  ].filter(([uri, value]) => value !== null && kept.has(uri))
    .map(([uri, value]) => ({ id: kept.get(uri), value: Buffer.from(value) }));
}

/** One branch on its way: what is chosen of it, and what was sent. */
class SentBranch {
  constructor(stream, rid, layers) {
    this.stream = stream;
    this.rid = rid;
    this.filter = new LayerFilter(layers);
    this.frames = 0;
    this.leftOutFrames = 0;
    this.bytes = 0;
    this.bitsPerSecond = 0;
    this.bytesBefore = 0;
  }
}

/**
 * Makes packets of what is captured, as far as one answer took it, and follows
 * what the receiver reports. `send(packet)` hands one to the transport.
 */
class MediaSender {
  #send;
  #bitsPerSecond;
  #requestKeyframe;
  #setBitrateShare;
  #nowUs;
  #unixOffsetUs;
  #name;
  #pacer;
  #rate;
  #reception = new ReceptionReports();
  #transportSequence = 0;
  #timer;
  #lastRoundMs = performance.now();

  /**
   * `numbers` are those of the offer: { streams: [{ ssrc, repairSsrc }], audio,
   * name }; `nowUs` tells the time of the capture. `setBitrateShare(share)` is
   * for a hardware encoder alone, and null for any other.
   */
  constructor({ answer, numbers, rids, layers, bitsPerSecond, nowUs, send,
    requestKeyframe, setBitrateShare = null }) {
    this.#send = send;
    this.#setBitrateShare = setBitrateShare;
    this.#bitsPerSecond = bitsPerSecond;
    this.#requestKeyframe = requestKeyframe;
    this.#nowUs = nowUs;
    this.#unixOffsetUs = Date.now() * 1000 - nowUs();
    this.#name = numbers.name;
    this.keyframeRequests = 0;
    const { video, audio } = answer;
    const isNamed = video.rids.length > 0;
    /** By the branch of the capture; null for one that was not taken. */
    this.branches = numbers.streams.map(({ ssrc, repairSsrc }, index) => {
      const rid = isNamed ? rids[index] : null;
      if (isNamed ? !video.rids.includes(rid) : index > 0) return null;
      return new SentBranch(new RtpStream({
        ssrc,
        repairSsrc,
        payloadType: video.payloadType,
        repairPayloadType: video.repairPayloadType,
        clockRate: 90_000,
        transportId: video.extensions.get(offer.transportSequence) ?? null,
        identify: identification(video.extensions, offer.mids.video, rid),
      }), rid, layers);
    });
    this.audio = audio === null ? null : new RtpStream({
      ssrc: numbers.audio,
      payloadType: audio.payloadType,
      clockRate: 48_000,
      transportId: audio.extensions.get(offer.transportSequence) ?? null,
      identify: identification(audio.extensions, offer.mids.audio, null),
    });
    const sent = this.#sentBranches();
    this.#rate = new RateControl({
      branchCount: sent.length,
      layerCount: layers,
      isHardware: setBitrateShare !== null,
    });
    this.#pacer = new Pacer({
      bitsPerSecond: pacingOf(bitsPerSecond),
      send: (made) => this.#sendNow(made),
    });
    this.#timer = setInterval(() => this.#round(), reportEveryMs);
    this.#timer.unref();
  }

  #sentBranches() {
    return this.branches.filter((branch) => branch !== null);
  }

  #streams() {
    return [...this.#sentBranches().map(({ stream }) => stream),
      ...this.audio === null ? [] : [this.audio]];
  }

  takePicture(packet) {
    const branch = this.branches[packet.branch];
    if (!branch) return;
    if (packet.isAfterGap) branch.filter.lostSome();
    // Pictures of a hardware encoder only look like layers: each refers to the
    // one before.
    const temporalId = this.#setBitrateShare === null ? packet.temporalId : 0;
    if (!branch.filter.takes({ isKeyframe: packet.isKeyframe, temporalId })) {
      branch.leftOutFrames += 1;
      if (branch.filter.needsKeyframe) this.#requestKeyframe();
      return;
    }
    const payloads = packetizeAccessUnit(packet.data, longestPayload);
    const isFirst = branch.frames === 0;
    payloads.forEach((payload, index) => {
      const made = branch.stream.make(payload, packet.timestampUs,
        index === payloads.length - 1);
      branch.bytes += made.packet.length;
      this.#pacer.pushPicture(made);
    });
    branch.frames += 1;
    // By then the receiver can tell how sound and picture belong together.
    if (isFirst) this.#report(branch.stream);
  }

  takeSound({ timestampUs, data }) {
    if (this.audio === null) return;
    const isFirst = this.audio.flow.packets === 0;
    this.#pacer.pushSound(this.audio.make({ prefix: [], body: data }, timestampUs,
      isFirst));
    if (isFirst) this.#report(this.audio);
  }

  #sendNow({ packet, transportOffset }) {
    if (transportOffset !== null) {
      const sequence = this.#transportSequence;
      this.#transportSequence = (sequence + 1) & 0xffff;
      packet.writeUInt16BE(sequence, transportOffset);
      this.#reception.sent(sequence, performance.now());
    }
    this.#send(packet);
  }

  #report(stream) {
    const { flow } = stream;
    const nowUs = this.#nowUs();
    const unixUs = nowUs + this.#unixOffsetUs;
    this.#send(Buffer.concat([
      senderReport(flow, stream.rtpTime(nowUs), unixUs),
      sourceDescription(flow.ssrc, this.#name),
    ]));
  }

  #round() {
    const nowMs = performance.now();
    const seconds = (nowMs - this.#lastRoundMs) / 1000;
    this.#lastRoundMs = nowMs;
    for (const stream of this.#streams()) {
      if (stream.flow.packets > 0) this.#report(stream);
    }
    let sentBitsPerSecond = 0;
    for (const branch of this.#sentBranches()) {
      branch.bitsPerSecond =
        Math.round((branch.bytes - branch.bytesBefore) * 8 / seconds);
      branch.bytesBefore = branch.bytes;
      sentBitsPerSecond += branch.bitsPerSecond;
    }
    // An encoder may be set anew, and noise takes more than it was set to.
    this.#pacer.setRate(
      pacingOf(Math.max(this.#bitsPerSecond, sentBitsPerSecond)));
    const { loss, estimate, delayMs } = this.#reception.takeRound();
    const isChanged = this.#rate.judge({
      nowMs, loss, estimate, sentBitsPerSecond,
      queueMs: Math.max(this.#pacer.waitingMs, delayMs),
    });
    if (isChanged) this.#applyStep();
  }

  #applyStep() {
    const { firstBranch, layers, bitrateShare } = this.#rate.step;
    this.#setBitrateShare?.(bitrateShare);
    this.#sentBranches().forEach(({ filter }, index) =>
      filter.allow(index < firstBranch ? 0 : layers));
  }

  /** A datagram of reports, from the network. */
  takeReports(datagram) {
    for (const report of readReports(datagram)) {
      switch (report.type) {
        case 'keyframe':
          this.keyframeRequests += 1;
          this.#requestKeyframe();
          break;
        case 'lost':
          this.#sendAgain(report);
          break;
        case 'blocks':
          this.#reception.takeBlocks(report.blocks,
            this.#nowUs() + this.#unixOffsetUs);
          break;
        case 'bitrate':
          this.#reception.takeEstimate(report.bitsPerSecond);
          break;
        case 'transport':
          this.#reception.takeTransport(report);
          break;
        default:
      }
    }
  }

  #sendAgain({ ssrc, sequences }) {
    const stream =
      this.#streams().find(({ flow }) => flow.ssrc === ssrc);
    if (!stream || stream.repair === null) return;
    for (const sequence of sequences) {
      // Whoever asks for everything, again and again, must not fill the memory.
      if (this.#pacer.waitingMs > longestWaitForAgainMs) return;
      const made = stream.makeAgain(sequence);
      if (made !== null) this.#pacer.pushAgain(made);
    }
  }

  stats() {
    const { firstBranch, layers, bitrateShare } = this.#rate.step;
    const { reason } = this.#rate;
    return {
      roundTripMs: this.#reception.roundTripMs,
      loss: this.#reception.loss,
      estimatedBitsPerSecond: this.#reception.estimate,
      keyframeRequests: this.keyframeRequests,
      waitingMs: this.#pacer.waitingMs,
      branches: this.branches.map((branch, index) => (branch === null ? null : {
        branch: index,
        rid: branch.rid,
        frames: branch.frames,
        leftOutFrames: branch.leftOutFrames,
        packets: branch.stream.flow.packets,
        retransmitted: branch.stream.retransmitted,
        bitsPerSecond: branch.bitsPerSecond,
        isLeftOut: !branch.filter.isOn,
      })).filter((branch) => branch !== null),
      audio: this.audio === null ? null : { packets: this.audio.flow.packets },
      leftOut: reason === null ? null
        : { reason, branches: firstBranch, layersSent: layers, bitrateShare },
    };
  }

  /** Says good-bye and sends nothing more. */
  stop() {
    if (this.#rate.step.bitrateShare !== 1) this.#setBitrateShare?.(1);
    clearInterval(this.#timer);
    this.#pacer.stop();
    this.#send(goodbye(this.#streams().map(({ flow }) => flow.ssrc)));
  }
}

module.exports = { MediaSender };
