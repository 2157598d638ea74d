// The settings record, field by field, as it stands in the daemon's memory. What changed is lit for some seconds.
import { bench, find, make, on, show } from './board.js';

const place = find('#settings dl');
const cells = new Map();
const litTime = 4000;

const textOf = (value) => Array.isArray(value) ? `${value[0]},${value[1]} – ${value[2]},${value[3]}` : String(value) || '–';

function cellOf(name) {
    if (!cells.has(name)) {
        const value = make('dd');
        cells.set(name, { value, text: null, ends: 0 });
        place.append(make('div', {}, make('dt', {}, name), value));
    }
    return cells.get(name);
}

function drawField(name, value) {
    const cell = cellOf(name), text = textOf(value);
    if (cell.text === text) return;
    const first = cell.text === null;
    cell.text = text;
    show(cell.value, text);
    if (first) return;
    const row = cell.value.parentElement;
    row.classList.add('changed');
    clearTimeout(cell.ends);
    cell.ends = setTimeout(() => row.classList.remove('changed'), litTime);
}

export function drawSettings() {
    on('bench', (_, changed) => {
        if (!changed.settings) return;
        const { from, fields } = bench.settings;
        show(find('#settings .facts'), !fields ? 'nothing saved yet' : from === 'memory' ? '136 bytes · live' : '136 bytes · as saved');
        for (const [name, value] of Object.entries(fields ?? {})) drawField(name, value);
    });
}
