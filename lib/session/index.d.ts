/// <reference types="node" />
import { EventEmitter } from 'node:events';
import addon = require('../../index');

// ---- Starting -----------------------------------------------------------

/** A monitor of the X11 screen by name, else the primary one. */
export interface MonitorSource {
  type: 'monitor';
  name?: string | undefined;
  /** A rectangle instead of a named monitor, in pixels of the screen. */
  geometry?:
    | { x?: number; y?: number; width: number; height: number }
    | undefined;
}

/** A window of X11, chosen by exactly one of the keys. */
export type WindowSource = { type: 'window' } & (
  | { id: number }
  /** The whole title, or a part that only one window has. */
  | { title: string }
  | { processId: number }
);

/** Whatever the user chooses in the dialog of the desktop. */
export interface PortalSource {
  type: 'portal';
  /** What may be chosen; everything that the portal offers by default. */
  types?: readonly ('monitor' | 'window')[] | undefined;
  cursor?: 'hidden' | 'embedded' | 'metadata' | undefined;
  /** For how long the choice may be restored; not at all by default. */
  persist?: 'none' | 'session' | 'permanent' | undefined;
  /** The token of an earlier session. */
  restoreToken?: string | null | undefined;
  /**
   * Called when the desktop has granted the source, with the token for the
   * next time, or null when it gave none. It comes before everything that can
   * still fail, because a token may work only once: the one given as
   * `restoreToken` is worth nothing any more. What it throws ends the start.
   */
  onRestoreToken?: ((restoreToken: string | null) => void) | undefined;
}

/** A screen-cast stream that was granted by other means. */
export interface PipeWireSource {
  type: 'pipewire';
  /** The connection; it stays the caller's own to close. */
  fd: number;
  nodeId: number;
  /** Pixels. */
  width: number;
  height: number;
  kind?: 'monitor' | 'window' | undefined;
}

export type Source =
  | MonitorSource
  | WindowSource
  | PortalSource
  | PipeWireSource;

export interface BranchOptions {
  /** Pixels; at least one of the two, the other follows the proportions. */
  width?: number | undefined;
  height?: number | undefined;
  /** Half of the rate of the branch before it by default. */
  fps?: number | undefined;
  /** Bits per second; by size and rate by default. */
  bitrate?: number | undefined;
}

export interface VideoOptions {
  /** Pixels; by default the source's own, up to as many as 1920 x 1080 has. */
  width?: number | undefined;
  height?: number | undefined;
  /** Pictures per second, 30 by default. */
  fps?: number | undefined;
  /** Bits per second; by size and rate by default. */
  bitrate?: number | undefined;
  /** Temporal layers, 1 to 3; 1 by default. */
  layers?: number | undefined;
  /** Up to two more branches, each smaller and slower than the one before. */
  branches?: readonly BranchOptions[] | undefined;
  encoder?: 'software' | 'hardware' | undefined;
  /** Seconds, 0.1 to 20; the software encoder never exceeds about two. */
  keyframeEvery?: number | undefined;
}

export interface AudioOptions {
  /** Later streams and other defaults are recorded as well; true by default. */
  follow?: boolean | undefined;
  /** The default input, or one by its name or description. */
  microphone?: boolean | string | undefined;
}

/** Which sound is recorded. */
export type Audio =
  | false
  | null
  /** What is heard at the default sink. */
  | 'system'
  | (AudioOptions & { system: true })
  | (AudioOptions & { processId: number })
  /** The name of an application, or of its program. */
  | (AudioOptions & { application: string })
  | (AudioOptions & { processBinary: string })
  | (AudioOptions & { system?: false | undefined; microphone: true | string })
  | { linuxAudio: addon.SystemAudio | addon.ProcessAudio };

export interface CaptureOptions {
  source: Source;
  video?: VideoOptions | undefined;
  audio?: Audio | undefined;
  /** Ends the start, and the capture later. */
  signal?: AbortSignal | undefined;
}

/**
 * Starts a capture.
 *
 * @throws CaptureError, always as a rejection
 */
export function startCapture(options: CaptureOptions): Promise<CaptureSession>;

/** One picture of a source, which is not scaled and loses nothing. */
export interface Screenshot {
  /** A PNG with eight bits of red, green and blue. */
  readonly data: Buffer;
  /** Pixels. */
  readonly width: number;
  readonly height: number;
  readonly source: SourceDescription;
  /** For a later session or screenshot of a portal's source. */
  readonly restoreToken: string | null;
}

export interface ScreenshotOptions {
  source: Source;
  /** "embedded", in the picture, by default; not for a PipeWire source. */
  pointer?: 'embedded' | 'hidden' | undefined;
  signal?: AbortSignal | undefined;
}

/**
 * Takes one picture of a source, without an encoder; also while a capture runs.
 *
 * @throws CaptureError, always as a rejection
 */
export function takeScreenshot(options: ScreenshotOptions): Promise<Screenshot>;

/**
 * Lets the user draw a rectangle on the X11 screen with the mouse; it is the
 * `geometry` of a monitor source. Esc gives up.
 *
 * @throws CaptureError, always as a rejection; ERR_CAPTURE_CANCELLED when the
 * user gives up
 */
export function selectRegion(options?: {
  signal?: AbortSignal | undefined;
}): Promise<{ x: number; y: number; width: number; height: number }>;

// ---- Packets ------------------------------------------------------------

/** One encoded picture of one branch. */
export interface VideoPacket {
  readonly type: 'video';
  /** 0 is the primary branch. */
  readonly branch: number;
  readonly isKeyframe: boolean;
  /** The temporal layer, from 0. */
  readonly temporalId: number;
  /** Microseconds since the start; the same clock as for sound. */
  readonly timestampUs: number;
  readonly durationUs: number;
  /** Pixels. */
  readonly width: number;
  readonly height: number;
  /** Milliseconds since 1970. */
  readonly encodedAtMs: number;
  /** One H.264 access unit in Annex B form. */
  readonly data: Buffer;
  /** Packets before this one were lost; it is a keyframe then. */
  readonly isAfterGap: boolean;
}

/** One buffer of sound. */
export interface AudioPacket {
  readonly type: 'audio';
  readonly timestampUs: number;
  readonly durationUs: number;
  /** Frames per second: 48,000. */
  readonly sampleRate: number;
  readonly channels: number;
  /** Samples of each channel. */
  readonly frames: number;
  /** The loudest sample, 0 to 1. */
  readonly peak: number;
  /** Interleaved. */
  readonly samples: Int16Array;
  /** Packets before this one were lost. */
  readonly isAfterGap: boolean;
}

export interface ReaderOptions {
  /** Packets that may wait: by default 64 for pictures, 200 for sound. */
  maxQueue?: number | undefined;
}

// ---- The session --------------------------------------------------------

/** How a capture ended. */
export interface CaptureEnd {
  readonly reason: 'stop' | 'abort' | 'source-ended' | 'error';
  /** Set for "error". */
  readonly error: CaptureError | null;
  /** More about "source-ended", for people. */
  readonly detail: string | null;
}

/** The end of something that the capture has lived through. */
export interface Recovery {
  /** The one that the "error" event had. */
  readonly error: CaptureError;
  /** How it is now, for people. */
  readonly message: string;
}

export interface CaptureEvents {
  /** Only sent when somebody listens; never ends the process. */
  error: [CaptureError];
  stopped: [CaptureEnd];
  /** What an `ERR_CAPTURE_INTERRUPTED` has told is over. */
  recovered: [Recovery];
  /** Other streams, or another output or input, are recorded from now on. */
  targets: [addon.SystemAudio | addon.ProcessAudio];
  /** Nothing is delivered any more. */
  paused: [];
  /** The first picture after a pause is delivered next. */
  resumed: [];
}

export type SourceDescription =
  | {
      type: 'monitor';
      /** Null for a rectangle. */
      name: string | null;
      geometry: { x: number; y: number; width: number; height: number };
    }
  | {
      type: 'window';
      id: number;
      title: string | null;
      processId: number | null;
    }
  | { type: 'portal'; kind: 'monitor' | 'window'; label: string | null }
  | { type: 'pipewire'; kind: 'monitor' | 'window'; nodeId: number };

export interface BranchDescription {
  readonly branch: number;
  /** Pixels, after fitting to the source. */
  readonly width: number;
  readonly height: number;
  readonly fps: number;
}

export interface CaptureSession extends AsyncDisposable {
  readonly source: SourceDescription;
  /** Pixels, when the capture started. */
  readonly sourceSize: { readonly width: number; readonly height: number };
  readonly branches: readonly BranchDescription[];
  /** For a later session; the caller keeps it, nothing is stored here. */
  readonly restoreToken: string | null;
  readonly events: EventEmitter<CaptureEvents>;
  /** Resolves when all is over; never rejects. */
  readonly ended: Promise<CaptureEnd>;
  readonly isActive: boolean;
  readonly hasAudio: boolean;
  /**
   * The pictures of one branch. Each branch has one reader at a time.
   *
   * @throws CaptureError ERR_CAPTURE_READER when it has one
   */
  video(
    options?: ReaderOptions & { branch?: number | undefined },
  ): AsyncIterableIterator<VideoPacket>;
  /** The sound; it too has one reader at a time. */
  audio(options?: ReaderOptions): AsyncIterableIterator<AudioPacket>;
  stats(): SessionStats;
  forceKeyframe(): boolean;
  /** Only for a hardware capture. */
  setBitrate(bitsPerSecond: number): { branch: number; bitrate: number }[];
  /** Not for a capture of the sound of the system alone. */
  setAudioTargets(audio: Exclude<Audio, false | null | 'system'>):
    Promise<void>;
  /** True from `pause` to `resume`. */
  readonly isPaused: boolean;
  /**
   * Delivers nothing of what is there from now on, until `resume`. The native
   * capture goes on meanwhile. Does nothing when it is paused.
   */
  pause(): void;
  /**
   * Goes on with a keyframe of what is there now. Its time follows what was
   * delivered last, and sound follows without a gap: in `timestampUs` there is
   * no pause. Does nothing when it is not paused.
   */
  resume(): void;
  /** May be called at any time and more than once. */
  stop(): Promise<void>;
}

// ---- Statistics ---------------------------------------------------------

export interface ReaderStats {
  hasReader: boolean;
  /** Packets that arrived from the module. */
  received: number;
  delivered: number;
  /** Lost because the reader was slow. */
  dropped: number;
  /** Discarded because there was no reader. */
  unread: number;
  waiting: number;
}

export interface BranchStats {
  branch: number;
  width: number;
  height: number;
  targetFps: number;
  fps: number;
  bitsPerSecond: number;
  /** What a hardware encoder was last told; null for a software encoder. */
  targetBitsPerSecond: number | null;
  frames: number;
  keyframes: number;
  bytes: number;
  /** Pictures of the temporal layers 0, 1 and 2. */
  framesPerLayer: number[];
  /** Lost because JavaScript did not run for too long. */
  droppedByModule: number;
  reader: ReaderStats;
}

export interface AudioStats {
  /** "system" where the sound of the system is recorded. */
  mode: 'system' | 'process';
  packets: number;
  /** Both channels counted. */
  samples: number;
  /** 0 to 1. */
  peak: number;
  clippedSamples: number;
  silentPackets: number;
  droppedByModule: number;
  reader: ReaderStats;
  sources: {
    targetObject: number;
    kind: 'system' | 'application' | 'microphone';
    processId: number;
    applicationName: string;
    processBinary: string;
    nodeName: string;
    /** The description of an output or input. */
    mediaName: string;
    samples: number;
    peak: number;
    /** Of the last buffer alone. */
    lastPeak: number;
    /** What all samples add up to without their signs, 1 at full scale. */
    magnitudeSum: number;
  }[];
  firstTimestampUs: number;
  lastTimestampUs: number;
}

/** Stays readable after the end, as it was just before. */
export interface SessionStats {
  isActive: boolean;
  encoder: { name: string; isHardware: boolean };
  video: {
    /** Temporal layers of each branch. */
    layers: number;
    branches: BranchStats[];
    firstTimestampUs: number;
    lastTimestampUs: number;
  };
  /** Null without sound. */
  audio: AudioStats | null;
  sync: {
    /**
     * Where timestamps begin, in microseconds of the monotonic clock; a pause
     * moves it on by its length.
     */
    clockOriginUs: number;
    /** What all pauses have left out. */
    pausedUs: number;
    firstAudioVideoOffsetUs: number;
    audioVideoDriftUs: number;
  };
  errors: {
    pipeline: number;
    lastPipelineError: string;
    encoder: number;
    lastEncoderError: string;
  };
}

// ---- What can be captured -----------------------------------------------

export interface Targets {
  /** Processes that play sound; null where PipeWire cannot be asked. */
  applications:
    | {
        processId: number | null;
        processBinary: string | null;
        applicationName: string | null;
        linuxAudio: addon.ProcessAudio;
        /** Those that the application has paused at the moment. */
        pausedTargetObjects: number[];
      }[]
    | null;
  /** Where sound is heard. */
  system:
    | {
        name: string;
        description: string | null;
        isDefault: boolean;
        linuxAudio: addon.SystemAudio;
      }[]
    | null;
  /** Microphones and other sources of sound. */
  inputs:
    | {
        name: string;
        description: string | null;
        isDefault: boolean;
        linuxAudio: addon.ProcessAudio;
      }[]
    | null;
  /** Null where X11 cannot be asked, as the next one. */
  monitors:
    | { name: string; isPrimary: boolean; source: addon.X11MonitorSource }[]
    | null;
  windows:
    | {
        title: string | null;
        className: string | null;
        processId: number | null;
        geometry: { x: number; y: number; width: number; height: number };
        source: addon.X11WindowSource;
      }[]
    | null;
  problems: { part: 'pipewire' | 'x11'; message: string }[];
}

/** What can be captured at this moment without the portal. */
export function listTargets(options?: {
  only?: 'pipewire' | 'x11' | undefined;
  /** Gives up; the promise then rejects with ABORT_ERR. */
  signal?: AbortSignal | undefined;
}): Promise<Targets>;

// ---- Errors -------------------------------------------------------------

export type CaptureErrorCode =
  | 'ABORT_ERR'
  | 'ERR_CAPTURE_ACTIVE'
  | 'ERR_CAPTURE_ARGUMENT'
  | 'ERR_CAPTURE_AUDIO'
  | 'ERR_CAPTURE_CANCELLED'
  | 'ERR_CAPTURE_HARDWARE'
  | 'ERR_CAPTURE_INTERRUPTED'
  | 'ERR_CAPTURE_LOAD'
  | 'ERR_CAPTURE_MISSING_ELEMENT'
  | 'ERR_CAPTURE_NOT_FOUND'
  | 'ERR_CAPTURE_NO_DISPLAY'
  | 'ERR_CAPTURE_NO_PIPEWIRE'
  | 'ERR_CAPTURE_PORTAL_CANCELLED'
  | 'ERR_CAPTURE_PORTAL_CLOSED'
  | 'ERR_CAPTURE_PORTAL_DENIED'
  | 'ERR_CAPTURE_PORTAL_MISSING'
  | 'ERR_CAPTURE_PROGRAM'
  | 'ERR_CAPTURE_READER'
  | 'ERR_CAPTURE_REQUEST'
  | 'ERR_CAPTURE_SOURCE'
  | 'ERR_CAPTURE_STOPPED'
  | 'ERR_CAPTURE_UNSUPPORTED'
  | 'ERR_CAPTURE_VIDEO';

/** The codes and what each says. */
export const captureErrorCodes: Readonly<Record<CaptureErrorCode, string>>;

export class CaptureError extends Error {
  readonly code: CaptureErrorCode;
  /** False for an error event that the capture has survived. */
  readonly isFatal: boolean;
  /** The native module's own code, where the error came from there. */
  readonly nativeCode: addon.ErrorCode | addon.EventCode | null;
  constructor(
    code: CaptureErrorCode,
    message: string,
    options?: {
      cause?: unknown;
      isFatal?: boolean;
      nativeCode?: addon.ErrorCode | addon.EventCode | null;
    },
  );
}
