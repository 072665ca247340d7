/** Wrong words on the command line; the status is 2 then. */
export class UsageError extends Error {}

const program = 'linux-capture';

const overview = `usage: ${program} COMMAND [OPTION...]

commands:
  doctor               tell what works on this machine, and what is missing
  sources              list screens, windows and what plays sound
  record OUT           record into a file (.mp4 or .mkv), a pipe or a stream
  shot OUT.png         take one picture
  preview              show live in a page of your browser
  publish URL          send live to a conference server (WHIP)
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
  --select             a part of the X11 screen that you draw with the mouse
  --remember NAME      chosen in the dialog once, and then taken again
`;

const castOptions = `  --pointer hidden     without the pointer (embedded), in a dialog's source
  --system-audio       with the sound of everything
  --app NAME|PID       with the sound of one application
  --microphone [NAME]  with a microphone (the default one), alone or besides`;

const pictureOptions = `how:
  --size WxH           size of the picture (that of the source, scaled down to
                       as many pixels as 1920x1080 has)
  --fps N              pictures a second (30)
  --bitrate N          bits per second, also 800k or 4M (by size)
  --hardware           with an NVIDIA encoder`;

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
  ${program} shot out.png --select
  ${program} shot - --region 100,50,1280x720 | display`,

  record: `usage: ${program} record OUT [OPTION...]

Records a screen or a window, until Ctrl-C or for --duration. OUT is

  NAME.mp4, NAME.mkv   a file, which others may follow while it grows
  -, a FIFO            a pipe: Matroska for who reads it
  srt:// rtmp:// rtmps:// udp:// tcp://
                       a server, by way of ffmpeg; tried again when it goes

${sourceOptions}${castOptions}

${pictureOptions}
  --layers N           temporal layers, 1 to 3 (1)
  --audio-bitrate N    of the sound (160k)
  --audio-codec NAME   aac or, in Matroska and with ffmpeg, opus (aac)

how much:
  --duration T         end after so long: 90, 1:30, 1h2m3s
  --max-time T         a new file after so long: NAME-001.mp4, NAME-002.mp4 ...
  --max-size N         a new file before one is larger: 700M, 4G
  --replay T           keep the last part in memory, up to an hour of it, and
                       write it into a new file when asked to

options:
  --overwrite          replace files that exist
  --json               tell how it goes as JSON, one object a line
${verboseOption}

while it runs, on a terminal and by signals to the process linux-capture:
  p, space, SIGUSR1    pause, and go on
  s, SIGUSR2           write the replay into a file
  q, Ctrl-C            end

examples:
  ${program} record out.mp4 --system-audio
  ${program} record talk.mp4 --system-audio --microphone
  ${program} record out.mkv --monitor HDMI-1 --app mpv --duration 1:30
  ${program} record out.mp4 --window "Text Editor" --size 1280x720
  ${program} record out.mp4 --region 100,50,1280x720
  ${program} record out.mp4 --remember desk
  ${program} record out.mp4 --max-time 10m --max-size 2G
  ${program} record out.mp4 --replay 30
  pkill -USR2 -x linux-capture          # writes those 30 seconds
  ${program} record out.mkv --system-audio --audio-codec opus \\
    --audio-bitrate 96k
  ${program} record - --json | mpv -
  ${program} record srt://192.168.1.5:9000 --layers 3
  pkill -USR1 -x linux-capture          # pauses, or goes on`,

  preview: `usage: ${program} preview [OPTION...]

Shows what a capture delivers in a page of your browser, until Ctrl-C.

${sourceOptions}${castOptions}

${pictureOptions}
  --branch SIZE[@FPS]  a smaller picture besides, 640x360@15 or 640; twice
                       at most
  --layers N           temporal layers, 1 to 3 (3)
  --port N             where the page is served (any free port)
  --open               open it in the browser of the desktop
${verboseOption}

examples:
  ${program} preview --open
  ${program} preview --portal --system-audio --branch 640x360@15 --branch 320`,

  publish: `usage: ${program} publish URL [OPTION...]

Sends a screen or a window live to a server that speaks WHIP, until Ctrl-C. The
token that the server wants is read from the environment variable
LINUX_CAPTURE_TOKEN, or as the options below say; it is no option itself, since
everybody can see those.

${sourceOptions}${castOptions}

${pictureOptions}
  --token-file FILE    the token is the first line of FILE
  --ask-token          ask for the token on the terminal
  --branch SIZE[@FPS]  a smaller picture besides, 640x360@15 or 640, which the
                       server may pass on instead; twice at most
  --layers N           temporal layers, 1 to 3 (3); the upper ones are left
                       out while the network is too slow
  --audio-bitrate N    bits per second of the sound (128k)
${verboseOption}

examples:
  ${program} publish https://example.org/whip/room --system-audio
  ${program} publish https://example.org/whip/room --token-file token.txt \\
    --branch 640x360@15 --branch 320x180@7`,

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
