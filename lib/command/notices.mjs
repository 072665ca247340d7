/** Tells what a capture lives through, and when it is over. */
export function tellTroubles(capture) {
  const tell = ({ message }) => console.error(`linux-capture: ${message}`);
  capture.events.on('error', (error) => {
    // The end of the capture tells what is fatal.
    if (!error.isFatal) tell(error);
  });
  capture.events.on('recovered', tell);
}
