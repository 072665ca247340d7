/** Wrong words on the command line; the status is 2 then. */
export class UsageError extends Error {}

export const usage = `usage: linux-capture COMMAND [OPTION...]

commands:
  doctor               tell what works on this machine, and what is missing
  sources              list screens, windows and what plays sound
  record OUT.mp4       record into a file (.mp4 or .mkv)
  preview              show live in a page of your browser

options of doctor and sources:
  --json               print JSON

options of record and preview, what to capture:
  --portal             what you choose in the dialog of the desktop
  --monitor [NAME]     a screen of X11 (the primary one)
  --window ID|TITLE    a window of X11
  --system-audio       with the sound of everything
  --app NAME|PID       with the sound of one application

options of record and preview, how:
  --size WxH           size of the picture (that of the source)
  --fps N              pictures a second (30)
  --bitrate N          bits per second, also 800k or 4M (by size)

options of record:
  --duration T         end after so long: 90, 1:30, 1h2m3s
  --overwrite          replace OUT when it exists

options of preview:
  --branch SIZE[@FPS]  a smaller picture besides, 640x360@15 or 640; twice
                       at most
  --layers N           temporal layers, 1 to 3 (3)
  --hardware           with an NVIDIA encoder
  --port N             where the page is served (any free port)
  --open               open it in the browser of the desktop

options of all:
  --verbose            show what the libraries print
  --help, --version

Ctrl-C ends a recording, with a complete file, or a preview.`;
