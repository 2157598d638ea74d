// The bench page. Each file draws one part of it; this one the header and the board itself.
import { act, bench, duration, find, make, mark, on, show, start } from './board.js';
import { drawConnectors } from './connectors.js';
import { drawInstruments } from './instruments.js';
import { drawPanel } from './panel.js';
import { drawPicture } from './picture.js';
import { drawRecord } from './record.js';
import { drawSettings } from './settings.js';

function drawState(id, state, title, text) {
    mark(find(`#${id} .lamp`), 'state', state);
    show(find(`#${id} b`), title);
    show(find(`#${id} span`), text);
}

function drawHeader({ board, temporary, daemon, watchdog }) {
    const running = daemon.state === 'running';
    drawState('daemon', running ? 'running' : 'fault', `daemon ${daemon.state}`,
        running ? `pid ${daemon.pid} · up ${duration(daemon.uptime)} · start ${daemon.starts}` : `exit ${daemon.exit ?? '–'}`);
    drawState('watchdog', watchdog.armed ? 'running' : 'missing', 'watchdog',
        watchdog.armed ? `${Math.round(watchdog['time left'])} s left` : 'not armed');
    show(find('#where'), temporary ? 'temporary board' : board);
    find('#where').title = board;
}

// ---- Identity: choices wait for the next power-cycle

const form = find('#identity form');
const choices = [...form.elements].filter((element) => element.name);
const touched = new Set();  // names of the choices that were made and not yet applied

function drawIdentity({ identity, uptime, ports }) {
    const real = { ...identity, 'device-id': String(identity['device-id']), 'top-board': identity['top-board'] ? 'on' : 'off' };
    for (const choice of choices) {
        if (!touched.has(choice.name) && choice.value !== real[choice.name]) choice.value = real[choice.name];
        choice.parentElement.classList.toggle('pending', touched.has(choice.name) && choice.value !== real[choice.name]);
    }
    const pending = find('label.pending', form) !== null;
    show(find('#power'), pending ? 'Power-cycle to apply' : 'Power-cycle');
    find('#power').classList.toggle('pending', pending);
    show(find('#identity .facts'), `up ${duration(uptime)} · ${ports.temperature.toFixed(1)} °C`);
}

async function powerCycle(event) {
    event.preventDefault();
    const words = choices.filter((choice) => touched.has(choice.name)).flatMap((choice) => [choice.name, choice.value]);
    touched.clear();
    await act('power-cycle', ...words);
}

function drawFaults({ faults, sound, ports }) {
    const list = Object.entries(faults.tools).map(([name, fault]) => [`${name}: ${fault}`, ['fault', 'tool', name, 'off']]);
    if (faults.disk !== 'off') list.push([`disk: ${faults.disk}`, ['fault', 'disk', 'off']]);
    for (const [address, fault] of Object.entries(faults.i2c))
        list.push([`i2c ${address}: ${fault}`, ['fault', 'i2c', address, 'off']]);
    for (const [place, { fault }] of Object.entries(sound))
        if (fault) list.push([`sound ${place}: ${fault}`, ['fault', 'sound', place, 'off']]);
    ports.camera.forEach((camera, index) => {
        if (camera && camera.controls !== 'off')
            list.push([`camera ${index + 1} controls: ${camera.controls}`, ['fault', 'camera', index + 1, 'off']]);
    });
    const place = find('.faults'), key = JSON.stringify(list);
    if (place.dataset.key === key) return;
    place.dataset.key = key;
    place.replaceChildren(...list.map(([text, words]) =>
        make('button', { title: 'Mend it', onclick: () => act(...words) }, text, make('i', { ariaHidden: 'true' }, '×'))));
}

// ---- Complaints: of the newest action, for some seconds

let complaintEnds = 0;

function complain(text) {
    const place = find('#complaint');
    show(place, text);
    place.hidden = !text;
    clearTimeout(complaintEnds);
    complaintEnds = setTimeout(() => (place.hidden = true), 6000);
}

on('action', ({ words, good, text }) => good ? (find('#complaint').hidden = true) : complain(`${words.join(' ')}: ${text}`));
on('line', (open) => {
    document.body.classList.toggle('lost', open === false);
    if (open === true) find('#complaint').hidden = true;
    if (open !== false) return;
    complain('The emulator has ended, or cannot be reached. The page comes back with it.');
    clearTimeout(complaintEnds);
    drawState('daemon', 'fault', 'no bench', '');
});
on('bench', () => {
    drawHeader(bench);
    drawIdentity(bench);
    drawFaults(bench);
});

form.addEventListener('submit', powerCycle);
for (const choice of choices) choice.addEventListener('change', () => {
    touched.add(choice.name);
    drawIdentity(bench);
});

drawPicture();
drawPanel();
drawConnectors();
drawInstruments();
drawRecord();
drawSettings();
start();
