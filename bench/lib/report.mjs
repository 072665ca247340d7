import { branchesText, sizeOf } from './scenarios.mjs';
import { formatTable, spreadText } from './table.mjs';
import { costOfMegapixel, judge } from './targets.mjs';

const milliseconds = 1e-6;

const isDelivering = ({ name }) => name !== 'limit';

function sideRows(sides, results, scenario, seconds) {
  return [
    ['side', 'processor s/s', 'ms/Mpixel', 'first packet ms', 'memory MB',
      'elsewhere s/s'],
    ...sides.filter(({ name }) => results[name].length > 0).map((side) => {
      const runs = results[side.name];
      return [
        side.title,
        spreadText(runs.map((run) => run.processorPerSecond), 3),
        isDelivering(side)
          ? spreadText(runs.map((run) =>
            costOfMegapixel(run, scenario, seconds)), 1)
          : '-',
        spreadText(runs.map((run) => run.firstNs), 0, milliseconds),
        spreadText(runs.map((run) => run.peakMemory), 0, 1e-6),
        spreadText(runs.map((run) => run.elsewherePerSecond), 2),
      ];
    }),
  ];
}

function branchRows(sides, results, scenario, seconds) {
  const rows = [[
    'branch', 'side', 'pictures/s', 'lost', 'repeated', 'unreadable',
    'longest gap ms', 'latency ms', 'p99 ms', 'kbit/s', 'PSNR dB', 'SSIM', 'read as',
  ]];
  scenario.branches.forEach((branch, i) => {
    for (const { name, title } of sides) {
      if (results[name].length === 0) continue;
      const of = (read) => results[name].map((run) => read(run.branches[i]));
      const colours = new Set(of(({ quality }) =>
        (quality ? `${quality.matrix} ${quality.range}` : '-')));
      rows.push([
        `${sizeOf(branch)}@${branch.fps}`,
        title,
        spreadText(of((b) => (b.distinct ?? b.delivered) / seconds), 1),
        spreadText(of(({ lost }) => lost), 0),
        spreadText(of(({ repeated }) => repeated), 0),
        spreadText(of(({ unreadable }) => unreadable), 0),
        spreadText(of(({ longestGapNs }) => longestGapNs), 0, milliseconds),
        spreadText(of(({ latencyNs }) => latencyNs), 1, milliseconds),
        spreadText(of(({ latencyP99Ns }) => latencyP99Ns), 1, milliseconds),
        spreadText(of(({ bitrate }) => bitrate), 0, 1e-3),
        spreadText(of(({ quality }) => quality?.psnr), 1),
        spreadText(of(({ quality }) => quality?.ssim), 3),
        [...colours].join(', '),
      ]);
    }
  });
  return rows;
}

// The X server and the scene stay well below it.
const mostElsewhere = 0.4;

function warning(results) {
  const isDisturbed = Object.values(results).flat()
    .some(({ elsewherePerSecond }) => elsewherePerSecond > mostElsewhere);
  return isDisturbed
    ? ['', 'WARNING: the machine did other work meanwhile (see "elsewhere"); ' +
        'these figures cannot be relied on']
    : [];
}

function limitLine(runs) {
  if (!(runs?.length > 0)) return [];
  return [
    'limit: ' +
      `${spreadText(runs.map((run) => run.stagesPerSecond), 3)} for source ` +
      'and conversion, ' +
      `${spreadText(runs.map((run) => run.encodingPerSecond), 3)} for the ` +
      'encoders',
  ];
}

/** Everything about one scenario as lines to print. */
export function scenarioReport(scenario, results, options) {
  const { seconds, runs, markdown, sides } = options;
  const lines = [
    `${markdown ? '### ' : '== '}${scenario.name}: ` +
      `${branchesText(scenario.branches)}, ${scenario.scene.kind} scene`,
    '',
    `runs of each side: ${runs}, of ${seconds} s; medians (least..greatest)`,
    '',
    formatTable(sideRows(sides, results, scenario, seconds), { markdown }),
    '',
    ...limitLine(results.limit),
    '',
    formatTable(branchRows(sides, results, scenario, seconds),
      { markdown, leftColumns: 2 }),
    ...warning(results),
    '',
  ];
  for (const { text, isMet } of judge(results, scenario, seconds)) {
    lines.push(`${markdown ? '- ' : ''}${isMet ? 'met' : 'NOT MET'}: ${text}`);
  }
  return lines;
}
