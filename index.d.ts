/// <reference types="node" />

/**
 * Captures one screen source on Linux, encodes it to H.264 in one to three
 * branches and hands packets, lifecycle events and statistics to JavaScript.
 *
 * There is one capture at a time in a process. Every function here runs on the
 * JavaScript thread and returns when its work is done; the callbacks are called
 * on that thread too, from the event loop.
 */
declare namespace linuxCaptureAddon {
  // ---- Request ----------------------------------------------------------

  /** A rectangle of the X11 screen. */
  interface X11MonitorSource {
    backend: 'x11';
    kind: 'monitor';
    handle: null;
    /** Pixels of the X11 root window; width and height at least 1. */
    geometry: { x: number; y: number; width: number; height: number };
  }

  /** One X11 window. Its branches keep the sizes that the request gives. */
  interface X11WindowSource {
    backend: 'x11';
    kind: 'window';
    /** The window's XID, an integer from 1 to `Number.MAX_SAFE_INTEGER`. */
    handle: number;
  }

  /** A screen-cast stream that the desktop portal has granted. */
  interface PortalSource {
    backend: 'portal';
    kind: 'window' | 'monitor';
  }

  /** The granted stream; required with a {@link PortalSource}. */
  interface PortalStream {
    /** Descriptor of the PipeWire connection, 0 or above. */
    pipeWireFd: number;
    /** PipeWire node of the stream, not 0. */
    pipeWireNodeId: number;
    /** The portal's number for the type of source; only reported. */
    sourceType: number;
    /** Pixels; both at least 1. */
    streamSize: { width: number; height: number };
    /** These are only reported by `getStats`. */
    label?: string;
    streamId?: string;
    mappingId?: string;
    pipeWireSerial?: number;
    restoreTokenUsed?: boolean;
    restoreTokenUpdated?: boolean;
  }

  /** A smaller version of the picture, encoded beside the primary. */
  interface SecondaryBranch {
    /**
     * Pixels, even. Where the size of the source is known, the branch is fitted
     * into this size with the proportions of the fitted primary. One that would
     * not be narrower and lower than the primary gets a half of the primary's
     * size instead, the second one a quarter.
     */
    width: number;
    height: number;
    /**
     * Pictures per second. Where the size of the source is known, a branch
     * whose rate, or fitted width or height, is not below that of the branch
     * before it is left out without a message.
     */
    fps: number;
    /** Bits per second. */
    bitrate: number;
  }

  /** The primary branch alone; the contents of `branches` are not looked at. */
  interface DirectTopology {
    mode: 'direct';
    branches: readonly unknown[];
  }

  /** The primary branch and up to two secondaries. */
  interface BranchTopology {
    mode: 'topology';
    branches:
      | readonly []
      | readonly [SecondaryBranch]
      | readonly [SecondaryBranch, SecondaryBranch];
  }

  /** The encoding of the primary branch and what all branches share. */
  interface CaptureOptions {
    /**
     * Pixels, even. Where the size of the source is known, the picture is
     * fitted into this size with the source's proportions, never enlarged.
     */
    width: number;
    height: number;
    /** Pictures per second, at least 1. */
    fps: number;
    /** Bits per second, positive. */
    bitrate: number;
    /** Bits per second. */
    minBitrate: number;
    /** Bits per second, positive. */
    maxBitrate: number;
    /** 1 to 3; values outside are brought inside. "hardware" needs 1. */
    temporalLayerCount: number;
    /**
     * Pictures from keyframe to keyframe, 1 to 600; brought inside. This and
     * the next three steer the hardware encoder. The software encoder sends a
     * keyframe about every two seconds, has no B-frames and uses CAVLC.
     */
    gopSize: number;
    /** 0 to 16; brought inside. */
    bFrames: number;
    enableCABAC: boolean;
    lowLatencyMode: boolean;
    /**
     * "hardware": an NVIDIA encoder and a portal source, or the setup fails.
     * "allow-degraded": the software encoder.
     */
    encoderRequirement: 'hardware' | 'allow-degraded';
    topology: DirectTopology | BranchTopology;
  }

  /** What is known about one source of sound; all of it is only reported. */
  interface AudioSourceDescription {
    pipeWireTargetObject?: number;
    pipeWireNodeId?: number;
    pipeWireObjectSerial?: number;
    processId?: number;
    applicationName?: string;
    processBinary?: string;
    nodeName?: string;
    mediaName?: string;
    targetObject?: string;
  }

  interface LinuxAudioTargets {
    /** PipeWire objects to record, at least one, each at least 1. */
    pipeWireTargetObjects: readonly number[];
    /** Used when there are as many as targets, else left aside. */
    pipeWireAudioSources?: readonly AudioSourceDescription[];
  }

  /** The mix of the whole system. */
  interface SystemAudio extends LinuxAudioTargets {
    mode: 'system';
  }

  /** The sound of chosen processes. */
  interface ProcessAudio extends LinuxAudioTargets {
    mode: 'process';
  }

  type SourceRequest =
    | { source: X11MonitorSource }
    | { source: X11WindowSource }
    | { source: PortalSource; portal: PortalStream };

  type AudioRequest =
    | { audio: { mode: 'none' } }
    | { audio: { mode: 'system' | 'auto' }; linuxAudio: SystemAudio }
    | { audio: { mode: 'process' }; linuxAudio: ProcessAudio };

  /** What `captureSetup` takes. Keys that are not listed are ignored. */
  type CaptureRequest = { capture: CaptureOptions } & SourceRequest &
    AudioRequest;

  // ---- Callbacks --------------------------------------------------------

  /** One encoded picture of one branch. */
  interface VideoPacket {
    type: 'video';
    /** One H.264 access unit in Annex B form; the callback's own copy. */
    payload: Buffer;
    /** The same value as `timestampUs`. */
    timestamp: number;
    /** Microseconds on the session's clock, which starts at `captureSetup`. */
    timestampUs: number;
    /** Microseconds as the pipeline stamped the picture; 0 when it did not. */
    rawPtsUs: number;
    rawDtsUs: number;
    /** Microseconds. */
    durationUs: number;
    /** Milliseconds since 1970 at which the picture was encoded. */
    enqueuedAtMs: number;
    /** Pixels. */
    width: number;
    height: number;
    /** 0 is the primary branch. */
    branchIndex: number;
    /** The temporal layer, from 0. */
    temporalIndex: number;
    isKeyFrame: boolean;
  }

  /** One buffer of sound: 48 kHz, two channels, interleaved. */
  interface AudioPacket {
    type: 'pcm';
    /** Microseconds, as in {@link VideoPacket}. */
    timestampUs: number;
    rawPtsUs: number;
    rawDtsUs: number;
    durationUs: number;
    /** Milliseconds since 1970. */
    enqueuedAtMs: number;
    channels: number;
    /** Frames per second. */
    sampleRate: number;
    /** Values in `samples`, both channels counted. */
    sampleCount: number;
    nonZeroSamples: number;
    absoluteSampleSum: number;
    /** 0 to 32768. */
    peakAbsoluteSample: number;
    /** Samples whose absolute value is 32760 or more. */
    clippedSamples: number;
    /** The callback's own copy. */
    samples: Int16Array;
  }

  /** The `code` of a thrown error; docs/native.md explains each. */
  type ErrorCode =
    | 'connection-invalid'
    | 'display-stalled'
    | 'encoder-failed'
    | 'gstreamer-unavailable'
    | 'hardware-unavailable'
    | 'invalid-argument'
    | 'invalid-request'
    | 'missing-element'
    | 'missing-property'
    | 'no-active-capture'
    | 'not-supported'
    | 'pipeline-invalid'
    | 'process-unreachable'
    | 'rectangle-off-screen'
    | 'resources-exhausted'
    | 'session-manager-missing'
    | 'session-manager-stalled'
    | 'sound-server-stalled'
    | 'source-paused'
    | 'source-stalled'
    | 'start-interrupted'
    | 'state-change-failed'
    | 'target-missing'
    | 'window-missing';

  /** The `code` of an "error" event; docs/native.md explains each. */
  type EventCode =
    | 'connection-lost'
    | 'display-lost'
    | 'display-stalled'
    | 'encoder-failed'
    | 'format-changed'
    | 'pipeline-error'
    | 'rectangle-off-screen'
    | 'sound-server-stalled'
    | 'source-lost'
    | 'window-closed'
    | 'window-hidden';

  /** What the functions throw, but for errors of the request's own getters. */
  interface CaptureFunctionError extends Error {
    code: ErrorCode;
  }

  interface LifecycleEvent {
    /**
     * "ready": a capture has started. "stopped": `stopCapture` was called, or
     * the source has ended. "error": a running capture met an error; it stays
     * as it is until `stopCapture` or `captureSetup` is called.
     */
    state: 'ready' | 'stopped' | 'error';
    /** What happened, in words that do not change. */
    reason: string;
    /** Pixels of the primary branch. */
    width: number;
    height: number;
    /**
     * Only of "error": what happened, for programs. It is not enumerable: no
     * list of the event's keys and no copy of the event has it.
     */
    code?: EventCode;
  }

  // ---- Results ----------------------------------------------------------

  interface BitrateResult {
    /** The request in bits per second, brought into 100,000 to 300,000,000. */
    requestedBitrate: number;
    /** One entry for each branch. */
    branchBitrates: {
      branchIndex: number;
      /** Bits per second. */
      bitrate: number;
      /** The same in the unit that the encoder takes. */
      bitrateUnits: number;
    }[];
  }

  /** Numbers that were not given are 0, texts empty. */
  interface AudioSource {
    sourceIndex: number;
    pipeWireTargetObject: number;
    pipeWireNodeId: number;
    pipeWireObjectSerial: number;
    processId: number;
    applicationName: string;
    processBinary: string;
    nodeName: string;
    mediaName: string;
    targetObject: string;
  }

  interface AudioTargetsResult {
    mode: string;
    pipeWireTargetObjects: number[];
    sources: AudioSource[];
    /** The launch text of the new audio pipeline. */
    audioPipeline: string;
  }

  // ---- Statistics -------------------------------------------------------

  /** One source of sound. Counters since its start or `resetStats`. */
  interface AudioSourceStats extends AudioSource {
    samplesCaptured: number;
    packetsCaptured: number;
    nonZeroSamplesCaptured: number;
    absoluteSampleSum: number;
    peakAbsoluteSample: number;
    clippedSamplesCaptured: number;
    silentPackets: number;
    consecutiveSilentPackets: number;
    maxConsecutiveSilentPackets: number;
    /** Milliseconds since 1970; 0 when there was none. */
    lastPacketAtMs: number;
    lastNonZeroAtMs: number;
    lastNonZeroSamples: number;
    lastAbsoluteSampleSum: number;
    lastPeakAbsoluteSample: number;
    lastClippedSamples: number;
    /** The negotiated format; empty before the first buffer. */
    caps: string;
  }

  /** What was found out about one hardware encoder. */
  interface ProviderProbeReport {
    provider: string;
    /** The GStreamer element. */
    encoder: string;
    providerTier: 'hardware-simulcast-fps' | 'not-runnable';
    probed: boolean;
    /** The element is installed. */
    available: boolean;
    selectableForTransport: boolean;
    selectableForSimulcastFps: boolean;
    isHardwareEncoder: boolean;
    temporalSvcSupported: boolean;
    temporalLayerCapacity: number;
    gpuMemorySupported: boolean;
    dmaBufSupported: boolean;
    memoryFeature: string;
    hardwareParityMode: 'simulcast-fps-presets' | 'none';
    temporalMetadataSource: string;
    /** Why it is not selectable, or that it is. */
    rejectionReason: string;
  }

  interface BranchStatsBase {
    branchIndex: number;
    /** Pixels. */
    width: number;
    height: number;
    /** Pictures per second; both the same. */
    configuredFps: number;
    targetFps: number;
    /** Encoded pictures per second from the first to the last one. */
    observedFps: number;
    droppedFrames: number;
    duplicateFrames: number;
    rawFrames: number;
    encodedFrames: number;
    keyframes: number;
    bytesEncoded: number;
    /** Packets handed to the `onFragmentReady` callback's queue. */
    bridgeQueuedPackets: number;
    /** Packets lost because that queue was full. */
    bridgeDroppedPackets: number;
    /** Packets withheld after a loss until the next keyframe. */
    bridgeSuppressedDeltaPackets: number;
    bridgeKeyframeRecoveryRequests: number;
    /** Bytes per second from the first to the last picture. */
    byteRate: number;
    /** Milliseconds since 1970; 0 when there was none. */
    firstFrameAtMs: number;
    lastFrameAtMs: number;
    /** Encoded pictures of the temporal layers 0 to 3. */
    temporalFrameCounts: [number, number, number, number];
    /** The first three of `temporalFrameCounts` again. */
    temporalFrameDeltas: { t0: number; t1: number; t2: number };
    /** Each of the layers 0, 1 and 2 has at least one picture. */
    allTemporalLayersEncoded: boolean;
  }

  /** A branch of the software encoder. */
  interface SoftwareBranchStats extends BranchStatsBase {
    appliedBitrate?: undefined;
  }

  /** A branch of a hardware encoder. */
  interface HardwareBranchStats extends BranchStatsBase {
    /** Bits per second. */
    appliedBitrate: number;
    appliedMaxBitrate: number;
    hardwareKeyframeRequestsAccepted: number;
    hardwareKeyframeRequestsFailed: number;
    /** Milliseconds since 1970; 0 when there was none. */
    lastHardwareKeyframeRequestAtMs: number;
    lastHardwareKeyframeAtMs: number;
    /** Milliseconds from a request to its keyframe, the longest. */
    maxHardwareKeyframeRecoveryLatencyMs: number;
  }

  type BranchStats = SoftwareBranchStats | HardwareBranchStats;

  /** The `portal` part of the last request, 0, -1 or empty where not given. */
  interface PortalStats {
    pipeWireFd: number;
    pipeWireNodeId: number;
    pipeWireSerial: number;
    sourceType: number;
    label: string;
    streamId: string;
    mappingId: string;
    restoreTokenUsed: boolean;
    restoreTokenUpdated: boolean;
    streamSize: { width: number; height: number };
  }

  /** The X11 part of the last request. */
  interface X11Stats {
    windowXid: number;
    kind: 'window' | 'monitor';
    /** Only when `kind` is "monitor". */
    geometry?: { x: number; y: number; width: number; height: number };
  }

  interface LinuxAudioStats {
    mode: 'none' | 'system' | 'auto' | 'process';
    pipeWireTargetObjects: number[];
    sources: AudioSource[];
  }

  /**
   * What `getStats` returns, keys in this order. Counters run from
   * `captureSetup` or `resetStats` on and stay readable after the stop.
   * Names in `Us` are microseconds, in `AtMs` milliseconds since 1970; 0 means
   * that there was none.
   */
  interface CaptureStats {
    backend: 'linux';
    capturing: boolean;
    /** The same as `capturing`. */
    isCapturing: boolean;
    sourceBackend: 'portal' | 'x11';
    sourceKind: 'window' | 'monitor';
    sourceHandle: number;
    framesCaptured: number;
    framesEncoded: number;
    keyframesEncoded: number;
    deltaFramesEncoded: number;
    audioSamplesCaptured: number;
    audioPacketsCaptured: number;
    /** The same as `audioSamplesCaptured`. */
    audioCount: number;
    audioNonZeroSamplesCaptured: number;
    audioAbsoluteSampleSum: number;
    audioPeakAbsoluteSample: number;
    audioClippedSamplesCaptured: number;
    audioSilentPackets: number;
    audioConsecutiveSilentPackets: number;
    audioMaxConsecutiveSilentPackets: number;
    audioLastPacketAtMs: number;
    audioLastNonZeroAtMs: number;
    audioLastNonZeroSamples: number;
    audioLastAbsoluteSampleSum: number;
    audioLastPeakAbsoluteSample: number;
    audioLastClippedSamples: number;
    /** The monotonic clock at `captureSetup`. */
    sessionClockOriginUs: number;
    /** On the session's clock, as in the packets. */
    firstVideoTimestampUs: number;
    lastVideoTimestampUs: number;
    firstAudioTimestampUs: number;
    lastAudioTimestampUs: number;
    /** Microseconds by which sound started after the picture. */
    firstAudioVideoOffsetUs: number;
    /** Microseconds by which the span of sound exceeds that of the picture. */
    audioVideoDriftUs: number;
    videoBridgeQueuedPackets: number;
    videoBridgeDroppedPackets: number;
    videoBridgeSuppressedDeltaPackets: number;
    audioBridgeQueuedPackets: number;
    audioBridgeDroppedPackets: number;
    /** Empty after the stop. */
    audioSourceStats: AudioSourceStats[];
    /** Pixels of the primary branch. */
    width: number;
    height: number;
    selectedEncoder: string;
    selectedProvider: string;
    encoderProvider: string;
    providerTier: 'degraded-cpu' | 'hardware-simulcast-fps';
    isHardwareEncoder: boolean;
    isDegradedCpuFallback: boolean;
    hardwareTransportSatisfied: boolean;
    hardwareParityMode: 'simulcast-fps-presets' | 'none';
    hardwareSimulcastFpsSatisfied: boolean;
    dmaBufNegotiated: boolean;
    sourceMemoryFeature: string;
    encoderInputMemoryFeature: string;
    temporalMetadataSource: string;
    cpuMappedFrameCount: number;
    /** The same as `cpuMappedFrameCount`. */
    cpuMappedVideoFrames: number;
    temporalLayerCount: number;
    gopSize: number;
    bFrames: number;
    enableCABAC: boolean;
    lowLatencyMode: boolean;
    /** The launch texts of the pipelines. */
    videoPipeline: string;
    audioPipeline: string;
    /** The last negotiated formats. */
    videoCaps: string;
    audioCaps: string;
    gstBusErrors: number;
    gstBusEos: number;
    lastGstBusError: string;
    openH264Errors: number;
    lastOpenH264Error: string;
    providerProbeReport: ProviderProbeReport[];
    /** Empty after the stop. */
    branchStats: BranchStats[];
    portal: PortalStats;
    x11: X11Stats;
    linuxAudio: LinuxAudioStats;
    /**
     * The code of an "error" event that the capture is living through at this
     * moment, for as long as a picture is repeated; else empty. It is not
     * enumerable.
     */
    interruption: EventCode | '';
  }

  // ---- Functions --------------------------------------------------------

  /**
   * Starts a capture; one that is running is stopped first, without an event.
   * Returns when pictures can flow, which may take some seconds, and sends the
   * "ready" event.
   *
   * @throws Error with the reason and a `code`; no capture is running then.
   */
  function captureSetup(request: CaptureRequest): void;

  /** Stops the capture, if any, and sends "stopped" in either case. */
  function stopCapture(): void;

  /** True from a successful `captureSetup` to the next stop. */
  function isCapturing(): boolean;

  /** Sets the counters of `getStats` to 0 without touching the capture. */
  function resetStats(): void;

  /** A snapshot; may be called at any time. */
  function getStats(): CaptureStats;

  /** Always empty: windows are chosen outside of the module. */
  function listWindows(): never[];

  /** Always empty: monitors are chosen outside of the module. */
  function listMonitors(): never[];

  /**
   * Asks every branch for a keyframe at once.
   *
   * @returns false when it could not be asked for; `getStats` says why in
   *   `lastOpenH264Error`.
   */
  function forceKeyframe(): boolean;

  /**
   * Shares a new total bitrate out to the branches of a hardware capture.
   *
   * @param bitsPerSecond bits per second over all branches
   * @throws TypeError without exactly one number
   * @throws Error when no hardware capture is running
   */
  function setBitrate(bitsPerSecond: number): BitrateResult;

  /**
   * Changes which processes a running capture records, and leaves the video
   * alone.
   *
   * @throws TypeError without an object
   * @throws Error when no capture of process audio is running, when the request
   *   is refused (the running sound is left as it is), or when the new audio
   *   pipeline does not start (there is no sound then)
   */
  function updateAudioTargets(linuxAudio: ProcessAudio): AudioTargetsResult;

  /**
   * Copies a descriptor out of another process, for instance the PipeWire
   * connection of a portal helper. The process must belong to the same user and
   * be open to tracing.
   *
   * @returns the descriptor in this process, which the caller owns
   * @throws TypeError without exactly two numbers
   * @throws Error with the system's reason
   */
  function duplicateFdFromPid(pid: number, fd: number): number;

  /**
   * Sets the receiver of video packets; it replaces the one before. At most 512
   * packets wait for it. What comes beyond is dropped and counted, and the
   * branch goes on with its next keyframe.
   *
   * @throws TypeError without exactly one function
   */
  function onFragmentReady(callback: (packet: VideoPacket) => void): void;

  /**
   * Sets the receiver of sound; it replaces the one before. At most 256 packets
   * wait for it; what comes beyond is dropped and counted.
   *
   * @throws TypeError without exactly one function
   */
  function onAudioSamples(callback: (packet: AudioPacket) => void): void;

  /**
   * Sets the receiver of lifecycle events; it replaces the one before. At most
   * 64 events wait for it; what comes beyond is dropped.
   *
   * @throws TypeError without exactly one function
   */
  function onCaptureLifecycle(callback: (event: LifecycleEvent) => void): void;
}

export = linuxCaptureAddon;
