/// <reference types="node" />
import { EventEmitter } from 'node:events';
import session = require('../session/index');

export interface PublishOptions {
  /** The WHIP endpoint: https, or http to this machine itself. */
  url: string | URL;
  /** What the server asks for as a bearer token. */
  token?: string | null | undefined;
  /** All branches of the capture, and not the first alone; true by default. */
  simulcast?: boolean | undefined;
  /** With the capture's sound; true by default where there is some. */
  audio?: boolean | undefined;
  /** Bits per second of the sound, 6,000 to 510,000; 128,000 by default. */
  audioBitrate?: number | undefined;
  /** Connects anew when the way is lost; true by default. */
  reconnect?: boolean | undefined;
  /** Ends the start, and the publication later. */
  signal?: AbortSignal | undefined;
}

export type PublicationState =
  | 'connecting'
  | 'connected'
  | 'reconnecting'
  | 'ended';

/** How a publication ended. */
export interface PublicationEnd {
  readonly reason: 'stop' | 'abort' | 'capture-ended' | 'error';
  /** Set for "error". */
  readonly error: PublishError | null;
}

export interface PublicationEvents {
  /** The error is what ended the state before, if one did. */
  state: [{ state: PublicationState; error: PublishError | null }];
}

export interface PublishedBranch {
  /** As in the capture. */
  branch: number;
  /** Its name in the offer; null for the only one. */
  rid: 'h' | 'm' | 'l' | null;
  /** Pictures that were sent. */
  frames: number;
  /** Pictures that were not, by `leftOut` or while a keyframe was missing. */
  leftOutFrames: number;
  packets: number;
  /** Packets that were sent again. */
  retransmitted: number;
  /** Over the last second, with the headers of RTP. */
  bitsPerSecond: number;
  isLeftOut: boolean;
}

export interface PublicationStats {
  state: PublicationState;
  /** How often a lost connection was replaced. */
  reconnects: number;
  /** To the server and back; null before its first report. */
  roundTripMs: number | null;
  /** The share of packets that were lost in the last second. */
  loss: number | null;
  /** What the server thinks the way carries, if it says so. */
  estimatedBitsPerSecond: number | null;
  keyframeRequests: number;
  /** How long what waits to be sent will take. */
  waitingMs: number;
  branches: readonly PublishedBranch[];
  audio: { packets: number } | null;
  /** Null while everything is sent. */
  leftOut: {
    /** What told that it was too much. */
    reason: 'estimate' | 'loss' | 'queue';
    /** Branches that are not sent, the largest first. */
    branches: number;
    /** Temporal layers that are still sent. */
    layersSent: number;
    /** How much of its bitrate a hardware encoder is set to; 1 for software. */
    bitrateShare: number;
  } | null;
}

/** A capture on its way to a server. */
export interface Publication extends AsyncDisposable {
  readonly state: PublicationState;
  readonly events: EventEmitter<PublicationEvents>;
  /** Resolves when all is over; never rejects. */
  readonly ended: Promise<PublicationEnd>;
  stats(): PublicationStats;
  /** Ends the publication, not the capture. May be called more than once. */
  stop(): Promise<void>;
}

/**
 * Sends a running capture to a server that speaks WHIP (RFC 9725); resolves when
 * media goes. It reads the branches, and the sound, of the capture.
 *
 * @throws PublishError, always as a rejection
 */
export function publish(
  capture: session.CaptureSession,
  options: PublishOptions,
): Promise<Publication>;

/** Throws a PublishError for what is no address to publish to. */
export function checkAddress(url: string | URL): void;

export type PublishErrorCode =
  | 'ABORT_ERR'
  | 'ERR_PUBLISH_ANSWER'
  | 'ERR_PUBLISH_ARGUMENT'
  | 'ERR_PUBLISH_CERTIFICATE'
  | 'ERR_PUBLISH_LOST'
  | 'ERR_PUBLISH_NOT_FOUND'
  | 'ERR_PUBLISH_PROGRAM'
  | 'ERR_PUBLISH_REFUSED'
  | 'ERR_PUBLISH_UNAUTHORIZED'
  | 'ERR_PUBLISH_UNREACHABLE';

/** The codes and what each says. */
export const publishErrorCodes: Readonly<Record<PublishErrorCode, string>>;

export class PublishError extends Error {
  readonly code: PublishErrorCode;
  /** Another attempt, a moment later, may succeed. */
  readonly mayPass: boolean;
  constructor(
    code: PublishErrorCode,
    message: string,
    options?: { cause?: unknown; mayPass?: boolean },
  );
}
