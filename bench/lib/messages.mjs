// What the processes of a measurement say.

/** The next message of that type; a failure of the host is thrown. */
export function messageFrom(child, wanted, limitMs) {
  return new Promise((resolve, reject) => {
    const finish = (act, value) => {
      clearTimeout(timer);
      child.off('message', onMessage);
      child.off('exit', onExit);
      act(value);
    };
    const onMessage = (message) => {
      if (message.type === 'failed') finish(reject, new Error(message.reason));
      if (message.type === wanted) finish(resolve, message);
    };
    const onExit = () => finish(reject, new Error('the host has ended'));
    const timer = setTimeout(
      () => finish(reject, new Error(`nothing came within ${limitMs} ms`)),
      limitMs);
    child.on('message', onMessage);
    child.on('exit', onExit);
  });
}
