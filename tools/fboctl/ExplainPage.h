#pragma once

namespace fboctl {

/** A page with plots: what stands before the data, which are those of --json, and behind them. */
constexpr char kPageBegin[] = R"(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><title>fboctl explain</title>
<style>
body { font: 15px sans-serif; max-width: 880px; margin: 2em auto; color: #222 }
svg { background: #fafafa; border: 1px solid #ccc }
td, th { padding: 2px 10px; text-align: right }
text { font-size: 12px; fill: #444 }
.before { fill: #c0392b } .after { fill: #2471a3 } .seconds { fill: #b9770e }
</style></head><body><main></main>
<script>const log = )";

constexpr char kPageEnd[] = R"(;
const runs = log.events.filter(e => e.kind == 'run');
// Without a time, runs follow each other evenly.
const points = (key, unit) => runs.flatMap((run, number) => run.zones
    .filter(zone => key in zone && (unit || zone.result == 'done'))
    .map(zone => [run.seconds_since ?? number, zone[key]]));
const mean = list => [...list.reduce((all, [x, y]) => all.set(x, (all.get(x) ?? []).concat(y)),
    new Map())].map(([x, ys]) => [x, ys.reduce((a, b) => a + b) / ys.length]);
const text = (x, y, words, anchor = 'start') =>
    `<text x="${x}" y="${y}" text-anchor="${anchor}">${words}</text>`;
const show = (id, title, height, content) => document.querySelector('main').insertAdjacentHTML(
    'beforeend', `<h2>${title}</h2><svg id="${id}" width="860" height="${height}">${content}</svg>`);

function plot(id, title, series) {
    const all = Object.values(series).flat();
    const left = all.reduce((least, [x]) => Math.min(least, x), Infinity);
    const width = all.reduce((most, [x]) => Math.max(most, x - left), 0) || 1;
    const top = all.reduce((most, [, y]) => Math.max(most, y), 1);
    const time = run => run?.time ?? '';
    let content = '<path stroke="#888" fill="none" d="M60 20V260H820"/>' +
        text(54, 26, top, 'end') + text(54, 262, 0, 'end') + text(60, 280, time(runs[0])) +
        text(820, 280, time(runs[runs.length - 1]), 'end');
    Object.entries(series).forEach(([name, list], i) => {
        content += `<rect class="${name}" x="${60 + 200 * i}" y="292" width="10" height="10"/>` +
            text(76 + 200 * i, 302, name) + list.map(([x, y]) => `<circle class="${name}" r="3"
                cx="${60 + (x - left) / width * 760}" cy="${260 - y / top * 240}"/>`).join('');
    });
    show(id, title, 315, content);
}

plot('levels', 'Mean fragmentation level of the measured zones of a run, 0 to 10',
     {before: mean(points('level_before')), after: mean(points('level_after'))});
plot('times', 'Seconds that a zone took', {seconds: points('seconds', true)});

const causes = {};
for (const day of log.days)
    for (const [cause, times] of Object.entries(day.causes ?? {}))
        causes[cause] = (causes[cause] ?? 0) + times;
const most = Math.max(1, ...Object.values(causes));
show('causes', 'Failures by cause', 30 + 26 * Object.keys(causes).length,
     Object.entries(causes).map(([cause, times], i) => text(300, 26 + 26 * i, cause, 'end') +
        `<rect class="before" x="310" y="${12 + 26 * i}" width="${times / most * 480}"
            height="18"/>` + text(316 + times / most * 480, 26 + 26 * i, times)).join('') ||
     text(60, 20, 'none'));

const columns = {day: 'day', runs: 'runs', zone_count: 'zones', failed_zones: 'failed',
                 unmeasured_zones: 'not measured', before: 'before', after: 'after'};
const row = (tag, cells) => `<tr>${cells.map(cell => `<${tag}>${cell ?? 0}</${tag}>`).join('')}</tr>`;
document.querySelector('main').insertAdjacentHTML('beforeend', '<h2>Days</h2><table>' +
    row('th', Object.values(columns)) +
    log.days.map(day => row('td', Object.keys(columns).map(key => day[key]))).join('') +
    '</table>');
</script></body></html>
)";

}  // namespace fboctl
