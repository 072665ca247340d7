/** Single keys, which can be turned off for those whom they get in the way. */
export function listenForKeys({ controls, sound, stage, theme }) {
  const isOn = document.getElementById('keys-on');
  for (const row of document.querySelectorAll('.keys [data-for]')) {
    row.hidden = document.getElementById(row.dataset.for).hidden;
  }
  const actions = {
    a: () => controls.chooseView('all'),
    0: () => controls.chooseView(0),
    1: () => controls.chooseView(1),
    2: () => controls.chooseView(2),
    l: () => controls.nextLayers(),
    k: () => controls.askKeyframe(),
    p: () => controls.togglePause(),
    f: () => stage.toggleFullScreen(),
    m: () => sound.toggle(),
    t: () => theme.toggle(),
  };
  document.addEventListener('keydown', (event) => {
    const isPlain =
      !event.ctrlKey && !event.altKey && !event.metaKey && !event.repeat;
    if (isOn.checked && isPlain && Object.hasOwn(actions, event.key)) {
      actions[event.key]();
    }
  });
}
