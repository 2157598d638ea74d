// The record: the emulator keeps what is done to the board, by whatever hand, from power-on on. Here it begins anew, ends,
// and becomes a file that `tessel-emulator play` carries out again.
import { act, bench, duration, find, make, mark, on, show } from './board.js';

const place = find('#record'), anew = find('#record-anew'), stop = find('#record-stop');

async function download() {
    const { good, text } = await act('record');
    if (!good) return;
    const link = make('a', { href: URL.createObjectURL(new Blob([text], { type: 'text/plain' })), download: 'record.scenario' });
    link.click();
    URL.revokeObjectURL(link.href);
}

function draw() {
    const { running, seconds, verbs } = bench.record;
    const count = verbs === 1 ? '1 verb' : `${verbs} verbs`;
    mark(find('.lamp', place), 'state', running ? 'running' : 'missing');
    show(find('.facts span', place), running ? `recording ${duration(seconds)}` : `record of ${count}`);
    place.title = running ? `${count} so far` : '';
    show(anew, running ? 'Anew' : 'Start');
    stop.hidden = !running;
}

export function drawRecord() {
    anew.onclick = () => act('record', 'start');
    stop.onclick = () => act('record', 'stop');
    find('#record-download').onclick = download;
    on('bench', draw);
}
