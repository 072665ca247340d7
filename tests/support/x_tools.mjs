import { execFile } from 'node:child_process';
import { promisify } from 'node:util';

const run = promisify(execFile);

/** What a user does to the windows and the screen of a display. */
export function desktopOf(display) {
  const tool = async (command, ...args) => {
    const { stdout } = await run(command, args.map(String),
      { env: { ...process.env, DISPLAY: display }, timeout: 20_000 });
    return stdout;
  };
  return {
    move: (window, x, y) => tool('xdotool', 'windowmove', window, x, y),
    resize: (window, width, height) =>
      tool('xdotool', 'windowsize', '--sync', window, width, height),
    hide: (window) => tool('xdotool', 'windowunmap', '--sync', window),
    show: (window) => tool('xdotool', 'windowmap', '--sync', window),
    raise: (window) => tool('xdotool', 'windowraise', window),
    // The name that is read as UTF-8; xdotool would write bytes of it.
    rename: (window, title) => tool('xprop', '-id', window, '-f',
      '_NET_WM_NAME', '8u', '-set', '_NET_WM_NAME', title),
    async setScreenSize(width, height) {
      // Without the virtual monitor, which would not fit a smaller screen.
      await tool('xrandr', '--output', 'screen', '--off',
        '--fb', `${width}x${height}`);
    },
  };
}
