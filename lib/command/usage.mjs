/** Wrong words on the command line; the status is 2 then. */
export class UsageError extends Error {}

export const usage = `usage: linux-capture COMMAND [OPTION...]

commands:
  doctor               tell what works on this machine, and what is missing
  sources              list screens, windows and what plays sound
  record OUT.mp4       record into a file (.mp4 or .mkv)

options of doctor and sources:
  --json               print JSON

options of record, what to record:
  --portal             what you choose in the dialog of the desktop
  --monitor [NAME]     a screen of X11 (the primary one)
  --window ID|TITLE    a window of X11
  --system-audio       with the sound of everything
  --app NAME|PID       with the sound of one application

options of record, how:
  --size WxH           size of the picture (that of the source)
  --fps N              pictures a second (30)
  --bitrate N          bits per second, also 800k or 4M (by size)
  --duration T         end after so long: 90, 1:30, 1h2m3s
  --overwrite          replace OUT when it exists

options of all:
  --verbose            show what the libraries print
  --help, --version

Ctrl-C ends a recording; the file is complete then.`;
