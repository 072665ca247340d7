import { smallCapture } from './requests.mjs';

/** A request for the stream of a screen cast. */
export function portalRequest({ fd, node, width, height, branches = [],
  ...capture }) {
  return {
    source: { backend: 'portal', kind: 'monitor' },
    portal: {
      pipeWireFd: fd,
      pipeWireNodeId: node.id,
      sourceType: 1,
      streamSize: { width, height },
    },
    capture: {
      ...smallCapture,
      width,
      height,
      ...capture,
      topology: branches.length === 0
        ? { mode: 'direct', branches }
        : { mode: 'topology', branches },
    },
    audio: { mode: 'none' },
  };
}

/** The same request with sound: "process", "system" or "auto". */
export function withAudio(request, mode, pipeWireTargetObjects) {
  return {
    ...request,
    audio: { mode },
    linuxAudio: audioObject(pipeWireTargetObjects,
      mode === 'process' ? 'process' : 'system'),
  };
}

export function audioObject(pipeWireTargetObjects, mode = 'process') {
  return { mode, pipeWireTargetObjects };
}
