/** Wrong words on the command line; the status is 2 then. */
export class UsageError extends Error {}

const program = 'linux-capture';

const overview = `usage: ${program} COMMAND [OPTION...]

commands:
  doctor               tell what works on this machine, and what is missing
  sources              list screens, windows and what plays sound
  record OUT.mp4       record into a file (.mp4 or .mkv)
  shot OUT.png         take one picture
  preview              show live in a page of your browser
  forget NAME          forget what --remember has kept

examples:
  ${program} doctor
  ${program} record out.mp4 --system-audio
  ${program} preview --open

"${program} COMMAND --help" has the options of a command; --version tells
the version.`;

const sourceOptions = `what to capture; by default what you choose in a dialog on Wayland, and the
primary screen on X11:
  --portal             what you choose in the dialog of the desktop
  --monitor [NAME]     a screen of X11 (the primary one)
  --window ID|TITLE    a window of X11; a part of the title will do
  --region X,Y,WxH     a part of the X11 screen or, with it, of the --monitor
  --remember NAME      chosen in the dialog once, and then taken again
`;

const castOptions = `  --pointer hidden     without the pointer (embedded), in a dialog's source
  --system-audio       with the sound of everything
  --app NAME|PID       with the sound of one application`;

const pictureOptions = `how:
  --size WxH           size of the picture (that of the source, scaled down to
                       as many pixels as 1920x1080 has)
  --fps N              pictures a second (30)
  --bitrate N          bits per second, also 800k or 4M (by size)`;

const verboseOption = `  --verbose            show what the libraries print`;

const texts = {
  doctor: `usage: ${program} doctor [--json]

Tells what can be captured on this machine, and what to install for the rest.

options:
  --json               print JSON
${verboseOption}

examples:
  ${program} doctor
  ${program} doctor --json > report.json`,

  sources: `usage: ${program} sources [--json]

Lists the screens and windows of X11, what plays sound, and the choices that are
remembered, with the words that "record" and "preview" take.

options:
  --json               print JSON
${verboseOption}

examples:
  ${program} sources
  ${program} record out.mp4 --window 0x1c00003`,

  shot: `usage: ${program} shot OUT.png|- [OPTION...]

Takes one picture of a screen or a window, with its own size and colours.

${sourceOptions}  --pointer hidden     without the pointer (embedded)

how:
  --overwrite          replace OUT when it exists
${verboseOption}

examples:
  ${program} shot out.png
  ${program} shot out.png --window "Text Editor" --pointer hidden
  ${program} shot - --region 100,50,1280x720 | wl-copy`,

  record: `usage: ${program} record OUT.mp4|OUT.mkv [OPTION...]

Records a screen or a window, until Ctrl-C or for --duration.

${sourceOptions}${castOptions}

${pictureOptions}
  --duration T         end after so long: 90, 1:30, 1h2m3s
  --overwrite          replace OUT when it exists
${verboseOption}

examples:
  ${program} record out.mp4 --system-audio
  ${program} record out.mkv --monitor HDMI-1 --app mpv --duration 1:30
  ${program} record out.mp4 --window "Text Editor" --size 1280x720
  ${program} record out.mp4 --region 100,50,1280x720
  ${program} record out.mp4 --remember desk`,

  preview: `usage: ${program} preview [OPTION...]

Shows what a capture delivers in a page of your browser, until Ctrl-C.

${sourceOptions}${castOptions}

${pictureOptions}
  --branch SIZE[@FPS]  a smaller picture besides, 640x360@15 or 640; twice
                       at most
  --layers N           temporal layers, 1 to 3 (3)
  --hardware           with an NVIDIA encoder
  --port N             where the page is served (any free port)
  --open               open it in the browser of the desktop
${verboseOption}

examples:
  ${program} preview --open
  ${program} preview --portal --system-audio --branch 640x360@15 --branch 320`,

  forget: `usage: ${program} forget NAME...

Forgets choices that "--remember NAME" has kept, so that the desktop asks again.
"${program} sources" lists their names.

options:
${verboseOption}

examples:
  ${program} forget desk`,
};

export const commandNames = Object.freeze(Object.keys(texts));

/** The help on a command, or on all of them. */
export const usageOf = (name) => texts[name] ?? overview;

/** One line that leads on from an error. */
export const hintOf = (name) => `Try "${program} ${
  commandNames.includes(name) ? `${name} ` : ''}--help".`;
